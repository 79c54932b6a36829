// What may go up now, and who sees to it.
//
// A change goes when it is due, when its turn has come, when nobody is writing to its file, and
// when the host may be asked. One thread looks for such changes and gives them to a few workers; it
// rests until the next is due or somebody has news.
//
// Threads: every member may be called on any thread; step() not together with start().
// Lifetime: stop() before anything that was handed in goes.
// Errors: DatabaseError from what reads or writes the journal.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "service/base/WorkQueue.h"
#include "service/upload/ActiveNodes.h"
#include "service/upload/Alarm.h"
#include "service/upload/DueChanges.h"
#include "service/upload/HostHealth.h"
#include "service/upload/UploadOrder.h"
#include "service/upload/UploaderParts.h"
#include "service/upload/Verdicts.h"

namespace tulo {

class Scheduler {
 public:
  // Sees to one change on the calling thread, and calls finished() in the end. `aside`: the item
  // makes room for another.
  using CarryOut = std::function<void(NodeId node, bool aside)>;

  Scheduler(const UploaderParts& parts, Verdicts& verdicts, HostHealth& health, CarryOut carryOut);

  void start();
  // What is under way comes to its end first.
  void stop();

  // Something was journaled.
  void poke();
  // Carries out the next change that is due, on this thread; false when there is none.
  bool step();

  // For who sees to a change out of turn. False when somebody does already; else until finished().
  bool take(NodeId node) { return active_.take(node); }
  void finished(NodeId node);
  const ActiveNodes& active() const { return active_; }

  // The host did what it was asked: what waited for that need not wait any longer.
  void reached();
  // Tries again at once; `refused`: also what waits for the user.
  void retry(bool refused);
  void retry(const std::vector<NodeId>& nodes);
  // Without a quiet time.
  void hurry(const std::vector<NodeId>& nodes);
  void hurryAll();

 private:
  struct Pick {
    NodeId node = kNoNode;
    bool aside = false;
  };
  // The next one, which is active from now on. `patient`: keeps the pause between passes.
  std::optional<Pick> pick(bool patient);
  Turn turnOf(ReplicaReader& reader, NodeId node, WallTime now);
  // Looks without a pause, also at a host that did not answer.
  void lookNow();

  void loop();
  // Gives out what may go, and tells how long to rest then.
  std::chrono::milliseconds giveOut();
  // Whether there is another host, which may take what the last one refused.
  void watchHost();

  const UploaderParts& parts_;
  Verdicts& verdicts_;
  HostHealth& health_;
  const CarryOut carryOut_;
  ActiveNodes active_;
  Alarm alarm_;
  // When the loop looks again by itself.
  std::atomic<WallTime> wakesAt_{WallTime{}};
  // The loop's, or that of whoever calls step().
  DueChanges due_;
  std::string host_;
  std::unique_ptr<WorkQueue> workers_;
  std::thread thread_;
};

}  // namespace tulo
