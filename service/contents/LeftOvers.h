// Removes what is of no use any more: contents that no node has, and nodes that left the tree.
//
// Threads: every member may be called on any thread.
// Errors: what the replica throws.
#pragma once

#include <functional>
#include <vector>

#include "service/kernel/OpenFiles.h"
#include "service/replica/ContentStore.h"
#include "service/replica/Replica.h"

namespace tulo {

class LeftOvers {
 public:
  LeftOvers(Replica& replica, OpenFiles& openFiles, ContentStore& store)
      : replica_(replica), openFiles_(openFiles), store_(store) {}

  // What an earlier run took out of the tree by a clock that was ahead does not stay for that long.
  void start();
  // Removes those of the contents that no node has and that are not on their way to one.
  void remove(const std::vector<ContentId>& contents);
  // Looks for some; false when there was nothing to do.
  bool step();

 private:
  // Some nodes by number, after the given one.
  using Page = std::function<std::vector<NodeId>(NodeId after)>;

  bool removeContents();
  std::vector<NodeId> detachedNodes();
  // The first of them that nobody has open, nor anything below them for writing.
  std::vector<NodeId> closedOf(ReplicaReader& reader, const Page& page);
  bool removeNodes(const std::vector<NodeId>& nodes);

  Replica& replica_;
  OpenFiles& openFiles_;
  ContentStore& store_;
};

}  // namespace tulo
