#include "service/replica/ReaderPool.h"

namespace tulo {

namespace {

// Each keeps a few descriptors and a cache of its own; more than a few at once are rare.
constexpr std::size_t kIdleReaders = 6;

}  // namespace

std::unique_ptr<ReplicaReader> ReaderPool::take() {
  {
    const MutexLock lock(mutex_);
    if (!idle_.empty()) {
      auto reader = std::move(idle_.back());
      idle_.pop_back();
      return reader;
    }
  }
  return std::make_unique<ReplicaReader>(path_);
}

void ReaderPool::giveBack(std::unique_ptr<ReplicaReader> reader) {
  const MutexLock lock(mutex_);
  if (idle_.size() < kIdleReaders) idle_.push_back(std::move(reader));
}

}  // namespace tulo
