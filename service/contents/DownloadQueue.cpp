#include "service/contents/DownloadQueue.h"

#include <utility>

namespace tulo {

bool DownloadQueue::add(NodeId node, DownloadPriority priority, FetchCompletion& completion) {
  const bool ahead = priority == DownloadPriority::ahead;
  const MutexLock lock(mutex_);
  if (stopping_) return false;
  Entry& entry = entryFor(node, ahead);
  entry.waiters.push_back(std::move(completion));
  if (!ahead) hurry(entry);
  return true;
}

DownloadQueue::Entry& DownloadQueue::entryFor(NodeId node, bool ahead) {
  const auto [found, isNew] = entries_.try_emplace(node);
  if (isNew) {
    found->second.download = std::make_shared<Download>(node);
    found->second.transfer = {node, 0, secondsNow(), ahead, false};
    (ahead ? waitingAhead_ : waitingOpened_).push_back(node);
  }
  return found->second;
}

// Somebody waits for it now.
void DownloadQueue::hurry(Entry& entry) {
  Transfer& transfer = entry.transfer;
  if (!transfer.ahead || transfer.active) return;
  std::erase(waitingAhead_, transfer.node);
  transfer.ahead = false;
  waitingOpened_.push_back(transfer.node);
}

DownloadPointer DownloadQueue::next() {
  const MutexLock lock(mutex_);
  if (stopping_ || active_ >= kParallel) return nullptr;
  const auto found = entries_.find(takeFirst());
  if (found == entries_.end()) return nullptr;
  Entry& entry = found->second;
  entry.transfer.active = true;
  ++active_;
  if (entry.transfer.ahead) ++activeAhead_;
  return entry.download;
}

NodeId DownloadQueue::takeFirst() {
  std::deque<NodeId>& waiting = waitingOpened_.empty() ? waitingAhead_ : waitingOpened_;
  const bool enough = &waiting == &waitingAhead_ && activeAhead_ >= kParallelAhead;
  if (waiting.empty() || enough) return kNoNode;
  const NodeId first = waiting.front();
  waiting.pop_front();
  return first;
}

void DownloadQueue::setSize(NodeId node, std::int64_t size) {
  const MutexLock lock(mutex_);
  const auto found = entries_.find(node);
  if (found != entries_.end()) found->second.transfer.size = size;
}

std::vector<FetchCompletion> DownloadQueue::remove(const Download& download) {
  const MutexLock lock(mutex_);
  const auto found = entries_.find(download.node);
  // It may have ended before, and another one of the same file begun.
  if (found == entries_.end() || found->second.download.get() != &download) return {};
  Entry entry = std::move(found->second);
  entries_.erase(found);
  if (entry.transfer.active) {
    --active_;
    if (entry.transfer.ahead) --activeAhead_;
  }
  return entry.waiters;
}

bool DownloadQueue::isFullAhead() const {
  const MutexLock lock(mutex_);
  return waitingAhead_.size() >= kMostAhead;
}

std::vector<Transfer> DownloadQueue::transfers() const {
  const MutexLock lock(mutex_);
  std::vector<Transfer> result;
  result.reserve(entries_.size());
  for (const auto& [node, entry] : entries_)
    result.push_back(entry.transfer);
  return result;
}

std::vector<DownloadPointer> DownloadQueue::stop() {
  const MutexLock lock(mutex_);
  stopping_ = true;
  waitingOpened_.clear();
  waitingAhead_.clear();
  std::vector<DownloadPointer> left;
  left.reserve(entries_.size());
  for (const auto& [node, entry] : entries_)
    left.push_back(entry.download);
  return left;
}

}  // namespace tulo
