#include "service/kernel/Folders.h"

#include <algorithm>

namespace tulo {

void Folders::remembered(NodeId folder, std::uint64_t references) {
  const MutexLock lock(mutex_);
  State& state = states_[folder];
  state.references += references;
  state.lastUse = ++clock_;
}

void Folders::forgotten(NodeId node, std::uint64_t references) {
  const MutexLock lock(mutex_);
  const auto found = states_.find(node);
  if (found == states_.end()) return;
  State& state = found->second;
  state.references -= std::min(references, state.references);
}

void Folders::used(NodeId folder) {
  const MutexLock lock(mutex_);
  states_[folder].lastUse = ++clock_;
}

std::optional<std::uint64_t> Folders::verified(NodeId folder) const {
  const MutexLock lock(mutex_);
  const auto found = states_.find(folder);
  if (found == states_.end() || found->second.verified == 0) return std::nullopt;
  return found->second.verified;
}

void Folders::setVerified(NodeId folder, std::uint64_t generation) {
  const MutexLock lock(mutex_);
  State& state = states_[folder];
  state.verified = std::max(state.verified, generation);
}

void Folders::dropVerified(NodeId folder) {
  const MutexLock lock(mutex_);
  const auto found = states_.find(folder);
  if (found != states_.end()) found->second.verified = 0;
}

void Folders::remove(NodeId folder) {
  const MutexLock lock(mutex_);
  const auto found = states_.find(folder);
  if (found == states_.end()) return;
  // The references stay counted: the kernel gives them back later.
  found->second.verified = 0;
  if (found->second.references == 0 && !found->second.watched) states_.erase(found);
}

bool Folders::isKnown(NodeId folder) const {
  const MutexLock lock(mutex_);
  const auto found = states_.find(folder);
  return found != states_.end() && found->second.references > 0;
}

void Folders::renumbered(NodeId folder, NodeId fresh) {
  const MutexLock lock(mutex_);
  const auto found = states_.find(folder);
  if (found == states_.end() || !found->second.watched) return;
  found->second.watched = false;
  states_[fresh].watched = true;
}

void Folders::setWatched(const std::vector<NodeId>& folders) {
  const MutexLock lock(mutex_);
  for (auto& [id, state] : states_)
    state.watched = false;
  for (NodeId folder : folders)
    states_[folder].watched = true;
}

void Folders::watch(NodeId folder) {
  const MutexLock lock(mutex_);
  states_[folder].watched = true;
}

std::vector<NodeId> Folders::olderThan(std::uint64_t generation) const {
  std::vector<std::pair<std::uint64_t, NodeId>> found;
  {
    const MutexLock lock(mutex_);
    for (const auto& [id, state] : states_) {
      const bool known = state.references > 0 || id == kRootNode;
      const bool seen = known && state.verified != 0;
      if ((seen || state.watched) && state.verified < generation) {
        found.emplace_back(state.lastUse, id);
      }
    }
  }
  std::sort(found.begin(), found.end(), std::greater<>());
  std::vector<NodeId> result;
  result.reserve(found.size());
  for (const auto& [use, id] : found)
    result.push_back(id);
  return result;
}

std::vector<std::pair<NodeId, std::uint64_t>> Folders::allVerified() const {
  const MutexLock lock(mutex_);
  std::vector<std::pair<NodeId, std::uint64_t>> result;
  for (const auto& [id, state] : states_) {
    if (state.verified != 0) result.emplace_back(id, state.verified);
  }
  return result;
}

std::uint64_t Folders::references() const {
  const MutexLock lock(mutex_);
  std::uint64_t sum = 0;
  for (const auto& [id, state] : states_)
    sum += state.references;
  return sum;
}

std::size_t Folders::size() const {
  const MutexLock lock(mutex_);
  return states_.size();
}

}  // namespace tulo
