// Lists in the background what is out of date, though nobody asks for it.
//
// The plan says which folder is next, the pace how soon.
//
// Threads: every member may be called on any thread, start() and stop() once each.
// Lifetime: stop() before anything that was handed in goes.
#pragma once

#include <thread>

#include "platform/linux/Mutex.h"
#include "service/kernel/Notifier.h"
#include "service/listing/Anchor.h"
#include "service/listing/Generations.h"
#include "service/listing/Lister.h"
#include "service/listing/SweepPace.h"
#include "service/listing/SweepPlan.h"

namespace tulo {

class Sweep {
 public:
  Sweep(SweepPlan& plan, const Generations& generations, Lister& lister, Notifier& notifier,
        Anchor& anchor);

  void start();
  // Returns when the step that is under way has ended.
  void stop();

  // The host has committed something.
  void committed();

  // Lists one folder again and waits for it; false when there is nothing worth doing at once.
  bool step();

 private:
  void run();
  bool isPouring();
  // Both return false when the sweep is to end.
  bool waitForWork(MutexLock& lock) TULO_REQUIRES(mutex_);
  bool rest(MutexLock& lock) TULO_REQUIRES(mutex_);
  int refresh(NodeId folder);
  void dropListings(const std::vector<NodeId>& folders);

  SweepPlan& plan_;
  const Generations& generations_;
  Lister& lister_;
  Notifier& notifier_;
  Anchor& anchor_;

  // Before the plan's; let go of during a step.
  Mutex mutex_;
  Condition wanted_;
  SweepPace pace_ TULO_GUARDED_BY(mutex_);
  bool stopping_ TULO_GUARDED_BY(mutex_) = false;
  std::thread thread_;
};

}  // namespace tulo
