// Which contents are known to have reached the disk.
//
// Those that are not may have been lost with the machine, and are not trusted after another boot,
// unless they were changed here and exist nowhere else.
//
// Threads: every member may be called on any thread.
// Errors: what the replica throws.
#pragma once

#include "service/replica/ContentStore.h"
#include "service/replica/Replica.h"

namespace tulo {

class DurableContents {
 public:
  DurableContents(Replica& replica, ContentStore& store) : replica_(replica), store_(store) {}

  // Drops what another boot may have cut, and counts what is left.
  void start();
  // Forces some to the disk; false when there was nothing to do.
  bool step();

 private:
  Replica& replica_;
  ContentStore& store_;
};

}  // namespace tulo
