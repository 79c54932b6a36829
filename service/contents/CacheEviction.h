// Room for contents: what is evicted, and when.
//
// Least recently used first, nothing that is open or kept. Only that may hold the cache above its
// size; the disk's limit has no exception.
//
// Threads: every member may be called on any thread.
// Errors: what the replica throws.
#pragma once

#include <atomic>
#include <cstdint>
#include <vector>

#include "platform/linux/Mutex.h"
#include "service/contents/LeftOvers.h"
#include "service/contents/RecentUse.h"
#include "service/kernel/Notifier.h"
#include "service/kernel/OpenFiles.h"
#include "service/replica/ContentStore.h"
#include "service/replica/Replica.h"

namespace tulo {

// Whether there is room for contents.
enum class Fit {
  now,    // and it is reserved
  later,  // when others have ended that are on their way, or what others read is closed
  never,
};

class CacheEviction {
 public:
  CacheEviction(Replica& replica, OpenFiles& openFiles, Notifier& notifier, ContentStore& store,
                RecentUse& use, LeftOvers& leftOvers)
      : replica_(replica),
        openFiles_(openFiles),
        notifier_(notifier),
        store_(store),
        use_(use),
        leftOvers_(leftOvers) {}

  // 0, or the errno that says why the contents stay: EBUSY while open or kept.
  int evict(NodeId node);
  // Makes room on the disk for so much, and reserves it. Nothing is evicted for what does not fit
  // all the same.
  Fit make(std::int64_t bytes) TULO_EXCLUDES(mutex_);
  // Brings the cache back to its size; false when there was nothing to do.
  bool step();

  std::uint64_t evicted() const { return evicted_; }

 private:
  struct Victims {
    std::vector<NodeId> nodes;
    std::int64_t bytes = 0;
  };
  // The least recently used, until they take up so much. `evenOpen`: as if nothing were open.
  Victims victims(std::int64_t bytes, bool evenOpen);
  Fit fitOf(std::int64_t bytes);
  bool evictSome(std::int64_t bytes);

  Replica& replica_;
  OpenFiles& openFiles_;
  Notifier& notifier_;
  ContentStore& store_;
  RecentUse& use_;
  LeftOvers& leftOvers_;

  // One at a time makes room, so that two do not evict for the same bytes. Before the gate.
  Mutex mutex_;
  std::atomic<std::uint64_t> evicted_ = 0;
};

}  // namespace tulo
