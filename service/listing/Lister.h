// Lists folders, one step after the other, and brings the replica to what came out.
//
// The provider is asked for the listing; one that equals the last ends there. Any other is believed
// when the source has as many items; what it lacks is looked up besides. Then the rows are
// reconciled and the kernel is told.
//
// Threads: every member may be called on any thread. The steps run on threads of its own and of the
// provider's.
// Lifetime: refuse() and stop() before anything that was handed in goes.
#pragma once

#include <atomic>
#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/linux/Mutex.h"
#include "service/base/WorkQueue.h"
#include "service/kernel/Folders.h"
#include "service/kernel/Notifier.h"
#include "service/listing/Belief.h"
#include "service/listing/Generations.h"
#include "service/listing/Listing.h"
#include "service/listing/ListingQueue.h"
#include "service/listing/Reconciler.h"
#include "service/listing/SourceWatch.h"
#include "service/listing/SweepPlan.h"
#include "service/replica/ContentStore.h"
#include "service/replica/Replica.h"

namespace tulo {

// What a lister works with, all of which outlives it.
struct ListerParts {
  Replica& replica;
  ExtensionPointer extension;
  Notifier& notifier;
  Folders& folders;
  OpenFiles& openFiles;
  const ContentStore& store;
  SourceWatch& source;
  Acknowledged& acknowledged;
  Generations& generations;
  SweepPlan& plan;  // gets the folders that are to be listed once more
  Belief belief;
};

class Lister {
 public:
  explicit Lister(ListerParts parts);

  // See Sync. To be set before the first listing.
  void whenReconciled(std::function<void(NodeId folder)> reconciled) {
    reconciled_ = std::move(reconciled);
  }

  // Lists the folder again and reconciles. Whoever asks while a listing runs that began before
  // the current generation waits for the next one.
  void refresh(NodeId folder, RefreshCompletion completion);

  // Answers EINTR from now on.
  void refuse() { queue_.refuse(); }
  // Ends its threads once what was begun has ended.
  void stop();

  struct Statistics {
    std::uint64_t listings = 0;
    std::uint64_t unchanged = 0;
    int lastError = 0;  // of the last listing; 0 when it went well
  };
  Statistics statistics() const;

 private:
  struct Attempt;
  using AttemptPointer = std::shared_ptr<Attempt>;

  // False when the threads have ended.
  bool start(NodeId folder);
  // Each step hands the attempt on to the next, or to finish(), which ends it once.
  void begin(const AttemptPointer& attempt);
  void ask(const AttemptPointer& attempt);
  void listed(const AttemptPointer& attempt, Listing listing);
  // The listing is not what the source has, or that cannot be told.
  bool isGone(const Node& folder);
  void doubted(const AttemptPointer& attempt, int error);
  void verifyMissing(const AttemptPointer& attempt, std::vector<std::string> missing);
  void apply(const AttemptPointer& attempt);
  void finish(const AttemptPointer& attempt, int error);
  void fail(const AttemptPointer& attempt, const char* format, const std::exception& error);
  void count(std::uint64_t Statistics::*counter);

  const ListerParts parts_;
  Reconciler reconciler_;
  std::function<void(NodeId)> reconciled_;
  ListingQueue queue_;
  WorkQueue workers_;
  // A listing was so large that what it leaves behind is worth giving back.
  std::atomic<bool> large_ = false;

  // A leaf.
  mutable Mutex mutex_;
  Statistics statistics_ TULO_GUARDED_BY(mutex_);
};

}  // namespace tulo
