#include "service/listing/ListingQueue.h"

#include <iterator>
#include <utility>

namespace tulo {

ListingQueue::Place ListingQueue::join(NodeId folder, std::uint64_t generation,
                                       RefreshCompletion& completion) {
  const MutexLock lock(mutex_);
  if (refusing_) return Place::refused;
  const auto [entry, isNew] = running_.try_emplace(folder);
  Running& running = entry->second;
  if (isNew) running.generation = generation;
  const bool recent = running.generation >= generation;
  (recent ? running.waiters : running.next).push_back(std::exchange(completion, nullptr));
  return isNew ? Place::first : Place::waiting;
}

void ListingQueue::began(NodeId folder, std::uint64_t generation) {
  const MutexLock lock(mutex_);
  running_[folder].generation = generation;
}

ListingQueue::Finished ListingQueue::finished(NodeId folder) {
  Finished result;
  const MutexLock lock(mutex_);
  const auto found = running_.find(folder);
  if (found == running_.end()) return result;
  Running& running = found->second;
  result.waiters.swap(running.waiters);
  result.again = !running.next.empty() && !refusing_;
  if (result.again) {
    running.waiters.swap(running.next);
  } else {
    std::move(running.next.begin(), running.next.end(), std::back_inserter(result.waiters));
    running_.erase(found);
  }
  changed_.notifyAll();
  return result;
}

void ListingQueue::refuse() {
  const MutexLock lock(mutex_);
  refusing_ = true;
}

void ListingQueue::awaitNone() {
  MutexLock lock(mutex_);
  while (!running_.empty())
    changed_.wait(lock);
}

}  // namespace tulo
