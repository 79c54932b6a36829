// What the host handed over for a download: taken as the node's contents, or thrown away.
//
// Threads: every member may be called on any thread, with a download of its own.
// Errors: ContentError for what cannot be taken or kept, and what the replica throws.
#pragma once

#include "service/contents/Download.h"
#include "service/replica/ContentStore.h"
#include "service/replica/Replica.h"

namespace tulo {

class Deliveries {
 public:
  Deliveries(Replica& replica, ContentStore& store) : replica_(replica), store_(store) {}

  // False when the node moved on meanwhile.
  bool adopt(Download& download);
  // Whatever nobody took.
  void discard(Download& download);

 private:
  bool give(const Download& download, ContentId content, std::int64_t blocks);

  Replica& replica_;
  ContentStore& store_;
};

}  // namespace tulo
