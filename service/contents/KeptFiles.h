// Fetches what shall be kept here before anybody opens it.
//
// Threads: step() by one thread at a time.
// Errors: what the replica throws.
#pragma once

#include "service/contents/Downloads.h"
#include "service/listing/Sync.h"
#include "service/replica/Replica.h"

namespace tulo {

class KeptFiles {
 public:
  KeptFiles(Replica& replica, Sync& sync, Downloads& downloads)
      : replica_(replica), sync_(sync), downloads_(downloads) {}

  // False when there was nothing to do, or when enough is on its way.
  bool step();

 private:
  void listFolders();

  Replica& replica_;
  Sync& sync_;
  Downloads& downloads_;
  // The last file that was asked for.
  NodeId cursor_ = kNoNode;
};

}  // namespace tulo
