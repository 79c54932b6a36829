// What the user asked to keep here.
//
// A pinned file is fetched and never evicted; a pinned folder pins everything in it, also what
// comes later. Pinned folders are kept up to date although nobody looks into them.
//
// Threads: every member may be called on any thread.
#pragma once

#include <vector>

#include "service/contents/Contents.h"
#include "service/kernel/Folders.h"
#include "service/listing/Sync.h"
#include "service/replica/Replica.h"

namespace tulo {

class Pins {
 public:
  Pins(Replica& replica, Folders& folders) : replica_(replica), folders_(folders) {}

  // Has the pinned folders of the last run watched again.
  void start();
  // 0 or an errno. What is fetched and what may go follows in Contents' own time.
  int setPinned(NodeId node, bool pinned);

 private:
  std::vector<NodeId> keptFolders();

  Replica& replica_;
  Folders& folders_;
};

// Everything under a folder, listed as far as need be.
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
