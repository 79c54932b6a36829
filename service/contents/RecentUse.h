// When files were last opened, which decides what is evicted first.
//
// An open only takes a note; the rows follow later, many at a time.
//
// Threads: every member may be called on any thread.
// Errors: save() throws what the replica throws.
#pragma once

#include <unordered_map>

#include "platform/linux/Mutex.h"
#include "service/base/Time.h"
#include "service/replica/Replica.h"

namespace tulo {

class RecentUse {
 public:
  explicit RecentUse(Replica& replica) : replica_(replica) {}

  void opened(NodeId node) TULO_EXCLUDES(mutex_);
  // False when there was nothing to write down.
  bool save() TULO_EXCLUDES(mutex_);

 private:
  Replica& replica_;
  // A leaf.
  Mutex mutex_;
  std::unordered_map<NodeId, WallSeconds> noted_ TULO_GUARDED_BY(mutex_);
};

}  // namespace tulo
