#include "service/kernel/OpenFiles.h"

#include <algorithm>

namespace tulo {

void OpenFiles::opened(NodeId node, ContentId content) {
  const MutexLock lock(mutex_);
  ++nodes_[node].handles;
  if (content != kNoContent) ++contents_[content];
}

void OpenFiles::closed(NodeId node, ContentId content) {
  const MutexLock lock(mutex_);
  const auto found = nodes_.find(node);
  if (found != nodes_.end() && --found->second.handles == 0) nodes_.erase(found);
  forgetContent(content);
}

void OpenFiles::forgetContent(ContentId content) {
  const auto found = contents_.find(content);
  if (found != contents_.end() && --found->second == 0) contents_.erase(found);
}

void OpenFiles::contentsChanged(NodeId node) {
  const MutexLock lock(mutex_);
  const auto found = nodes_.find(node);
  if (found != nodes_.end()) ++found->second.changes;
}

std::uint64_t OpenFiles::contentsChanges(NodeId node) const {
  const MutexLock lock(mutex_);
  const auto found = nodes_.find(node);
  return found == nodes_.end() ? 0 : found->second.changes;
}

void OpenFiles::exchanged(ContentId before, ContentId now) {
  const MutexLock lock(mutex_);
  if (now != kNoContent) ++contents_[now];
  forgetContent(before);
}

bool OpenFiles::anyForWriting() const {
  const MutexLock lock(mutex_);
  return std::any_of(nodes_.begin(), nodes_.end(),
                     [](const auto& each) { return each.second.writers > 0; });
}

bool OpenFiles::isOpen(NodeId node) const {
  const MutexLock lock(mutex_);
  return nodes_.contains(node);
}

void OpenFiles::openedForWriting(NodeId node) {
  const MutexLock lock(mutex_);
  ++nodes_[node].writers;
}

void OpenFiles::closedForWriting(NodeId node) {
  const MutexLock lock(mutex_);
  const auto found = nodes_.find(node);
  if (found != nodes_.end() && found->second.writers > 0) --found->second.writers;
}

bool OpenFiles::isOpenForWriting(NodeId node) const {
  const MutexLock lock(mutex_);
  const auto found = nodes_.find(node);
  return found != nodes_.end() && found->second.writers > 0;
}

std::vector<NodeId> OpenFiles::allOpenForWriting() const {
  const MutexLock lock(mutex_);
  std::vector<NodeId> result;
  for (const auto& [id, state] : nodes_) {
    if (state.writers > 0) result.push_back(id);
  }
  return result;
}

bool OpenFiles::isContentOpen(ContentId content) const {
  const MutexLock lock(mutex_);
  return contents_.contains(content);
}

std::size_t OpenFiles::count() const {
  const MutexLock lock(mutex_);
  std::size_t sum = 0;
  for (const auto& [id, state] : nodes_)
    sum += state.handles;
  return sum;
}

void OpenFiles::leaveBehind(const Entry& entry) {
  const MutexLock lock(mutex_);
  const auto found = nodes_.find(entry.id);
  if (found != nodes_.end()) found->second.leftBehind = entry;
}

std::optional<Entry> OpenFiles::leftBehind(NodeId node) const {
  const MutexLock lock(mutex_);
  const auto found = nodes_.find(node);
  return found == nodes_.end() ? std::nullopt : found->second.leftBehind;
}

}  // namespace tulo
