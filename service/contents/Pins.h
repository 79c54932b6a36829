// What the user asked to keep here.
//
// A pinned file is fetched and never evicted; a pinned folder pins everything in it, also what
// comes later. Pinned folders are kept up to date although nobody looks into them.
//
// Threads: every member may be called on any thread.
#pragma once

#include <vector>

#include "service/kernel/Folders.h"
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

}  // namespace tulo
