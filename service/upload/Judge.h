// What those are told who wait for the host's word on a change.
//
// Threads: every member may be called on any thread, outside of transactions.
#pragma once

#include "service/edits/LocalNames.h"
#include "service/replica/Replica.h"
#include "service/upload/Verdicts.h"

namespace tulo {

class Judge {
 public:
  Judge(Replica& replica, const LocalNames& localNames, Verdicts& verdicts)
      : replica_(replica), localNames_(localNames), verdicts_(verdicts) {}

  // The verdict when nothing more will be done about the node's change. Throws nothing.
  void check(NodeId node);
  // An attempt failed. What waits for a folder to go up first shares its verdict; `all`: nothing
  // goes up at the moment.
  void failed(NodeId node, int error, bool all);

 private:
  // Whether the node cannot go up before the other one has.
  bool waitsFor(NodeId node, NodeId other);

  Replica& replica_;
  const LocalNames& localNames_;
  Verdicts& verdicts_;
};

}  // namespace tulo
