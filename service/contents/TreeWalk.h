// Everything under a folder, listed as far as need be.
//
// Threads: every member may be called on any thread; files() waits for listings.
// Errors: what the replica throws. What cannot be listed is walked as it is known here.
#pragma once

#include <functional>
#include <vector>

#include "service/listing/Sync.h"
#include "service/replica/Replica.h"

namespace tulo {

class TreeWalk {
 public:
  TreeWalk(Replica& replica, Sync& sync) : replica_(replica), sync_(sync) {}

  // Files under the node, itself included; folders are listed on the way. Stops early when
  // `goOn` says false.
  std::vector<NodeId> files(NodeId top, const std::function<bool(std::size_t found)>& goOn);
  // The same with what is known, asking nobody.
  std::vector<NodeId> knownFiles(NodeId top);

 private:
  std::vector<NodeId> walk(NodeId top, bool list,
                           const std::function<bool(std::size_t found)>& goOn);

  Replica& replica_;
  Sync& sync_;
};

}  // namespace tulo
