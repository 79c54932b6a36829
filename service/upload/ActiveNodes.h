// The nodes whose change somebody is seeing to just now.
//
// Threads: every member may be called on any thread.
#pragma once

#include <cstddef>
#include <unordered_set>
#include <vector>

#include "platform/linux/Mutex.h"
#include "service/replica/Ids.h"

namespace tulo {

class ActiveNodes {
 public:
  // False when somebody else has it.
  bool take(NodeId node) TULO_EXCLUDES(mutex_);
  void giveBack(NodeId node) TULO_EXCLUDES(mutex_);
  bool contains(NodeId node) const TULO_EXCLUDES(mutex_);
  std::size_t size() const TULO_EXCLUDES(mutex_);
  std::vector<NodeId> all() const TULO_EXCLUDES(mutex_);

 private:
  // A leaf.
  mutable Mutex mutex_;
  std::unordered_set<NodeId> nodes_ TULO_GUARDED_BY(mutex_);
};

}  // namespace tulo
