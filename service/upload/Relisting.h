// Folders in which the host's state is to be shown again, since a change was given up for it.
//
// Threads: every member may be called on any thread; listWanted() outside of transactions.
#pragma once

#include <functional>
#include <utility>
#include <vector>

#include "platform/linux/Mutex.h"
#include "service/replica/Ids.h"

namespace tulo {

class Relisting {
 public:
  using List = std::function<void(NodeId)>;

  explicit Relisting(List list) : list_(std::move(list)) {}

  // Nothing for kNoNode.
  void want(NodeId folder) TULO_EXCLUDES(mutex_);
  // Has those listed that were wanted since the last time.
  void listWanted() TULO_EXCLUDES(mutex_);

 private:
  const List list_;
  // A leaf.
  Mutex mutex_;
  std::vector<NodeId> wanted_ TULO_GUARDED_BY(mutex_);
};

}  // namespace tulo
