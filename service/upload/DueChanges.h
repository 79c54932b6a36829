// Goes through the changes that are due, each once in a pass, however many there are.
//
// What is passed by because it waits for something else comes again with the next pass. A pass
// begins when the one before has ended and something happened since; after one that was in vain,
// there is a pause in proportion to what it cost, so that a long queue that cannot move takes no
// processor for itself.
//
// Threads: again() on any, the rest on one at a time.
#pragma once

#include <atomic>
#include <chrono>
#include <deque>
#include <optional>

#include "service/errors/Reaction.h"
#include "service/replica/Replica.h"

namespace tulo {

class DueChanges {
 public:
  // `longest`: nothing is put off for longer.
  explicit DueChanges(Replica& replica, milliseconds longest = kLongestPause)
      : replica_(replica), longest_(longest) {}

  // The node of the next change that is due; nothing when the pass has ended. `patient`: keeps the
  // pause between passes.
  std::optional<NodeId> next(WallTime now, bool patient);
  // The node that next() gave is being seen to.
  void taken() { inVain_ = false; }
  // What was passed by may be ready now.
  void again() { wanted_ = true; }

 private:
  using Clock = std::chrono::steady_clock;

  bool fill(WallTime now);
  bool beginPass(WallTime nowDue, bool patient);
  // What the journal has as the time of a change may come from a clock that was ahead.
  void capWaits(WallTime now);
  void endPass();

  Replica& replica_;
  const milliseconds longest_;
  std::atomic<bool> wanted_ = true;
  std::deque<NodeId> batch_;
  WallTime lastDue_{milliseconds(-1)};
  NodeId lastNode_ = kNoNode;
  bool passing_ = false;
  bool inVain_ = true;
  Clock::time_point began_ = Clock::now();
  Clock::time_point notBefore_ = Clock::now();
};

}  // namespace tulo
