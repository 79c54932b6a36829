// Brings the host what was changed here.
//
// Puts together those who do: Scheduler (what may go now), Planner (what the host is to be told),
// Provider (asking it), Outcome (what its answer means), with Delivery as the way of one change
// through them. Each step is in the journal before the next begins, so that it can be picked up
// after a crash; a file is never created twice.
//
// Threads: every member may be called on any thread; step() runs one change on the caller's.
// Lifetime: stop() before anything that was handed in goes.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "service/replica/Journal.h"
#include "service/upload/Delivery.h"
#include "service/upload/Discard.h"
#include "service/upload/Doubt.h"
#include "service/upload/Failure.h"
#include "service/upload/HostHealth.h"
#include "service/upload/Judge.h"
#include "service/upload/Outcome.h"
#include "service/upload/Planner.h"
#include "service/upload/Provider.h"
#include "service/upload/Reappearance.h"
#include "service/upload/Relisting.h"
#include "service/upload/Scheduler.h"
#include "service/upload/Tally.h"
#include "service/upload/UploaderParts.h"
#include "service/upload/Verdicts.h"

namespace tulo {

class Uploader {
 public:
  explicit Uploader(const UploaderParts& parts);
  ~Uploader();
  Uploader(const Uploader&) = delete;
  Uploader& operator=(const Uploader&) = delete;

  void start() { scheduler_.start(); }
  void stop();
  // Something was journaled.
  void poke() { scheduler_.poke(); }

  // Carries out the next change that is due; false when there is none.
  bool step() { return scheduler_.step(); }

  // Has the changes of the nodes go up at once, also of a file that is still open, and completes
  // the ticket with what becomes of the first attempt: EHOSTDOWN at once when there is no host,
  // ETIMEDOUT after `patience`. The changes stay journaled whatever the verdict is.
  void awaitVerdict(Verdicts::Ticket ticket, const std::vector<NodeId>& nodes,
                    milliseconds patience);
  Verdicts& verdicts() { return verdicts_; }

  // Tries again at once; `refused`: also what waits for the user.
  void retry(bool refused) { scheduler_.retry(refused); }
  // The same for the changes of these nodes, and for nothing else.
  void retry(const std::vector<NodeId>& nodes) { scheduler_.retry(nodes); }
  // Has the waiting changes of these nodes, or all of them, go up without a quiet time.
  void hurry(const std::vector<NodeId>& nodes) { scheduler_.hurry(nodes); }
  void hurryAll() { scheduler_.hurryAll(); }
  // Drops what was changed here of the node: the host's state is shown again. Contents that exist
  // nowhere else are gone then. Returns 0 or an errno: ENOENT when nothing was changed, EBUSY for
  // what is being sent or written, ENOTEMPTY for a new folder that something is in, EEXIST for what
  // has to go back to a place that is taken, ESTALE for a folder whose former one is gone. An item
  // that made room for another at the host is renamed there first, whose error that can be, too.
  int discard(NodeId node) { return discard_.discard(node); }

  struct Statistics {
    journal::Counts counts;
    std::size_t active = 0;
    std::vector<NodeId> activeNodes;
    std::uint64_t sent = 0;
    std::uint64_t failures = 0;
    std::uint64_t conflicts = 0;
    bool paused = false;
    bool reachable = true;
    bool present = true;  // there is a host to be asked
    std::string lastError;
  };
  Statistics statistics();

 private:
  void carryOut(NodeId node, bool aside);

  const UploaderParts parts_;
  Verdicts verdicts_;
  Tally tally_;
  HostHealth health_;
  Relisting relisting_;
  Provider provider_;
  Reappearance reappearance_;
  Judge judge_;
  Outcome outcome_;
  Failure failure_;
  Doubt doubt_;
  Planner planner_;
  Delivery delivery_;
  Scheduler scheduler_;
  Discard discard_;
};

}  // namespace tulo
