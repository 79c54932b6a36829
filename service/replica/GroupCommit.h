// One transaction for all who came while the one before it ran: committing is what costs.
//
// Whoever finds nobody at it leads: it takes all that wait into one transaction, each behind a
// savepoint, so that what one of them throws undoes that one's part alone.
//
// Threads: every member may be called on any thread.
// Lifetime: leases end before this does.
// Errors: what a function throws comes out of the call that passed it; DatabaseError comes out of
// all whose transaction it was.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <exception>
#include <functional>

#include "platform/linux/Mutex.h"
#include "service/replica/ReplicaWriter.h"

namespace tulo {

class GroupCommit {
 public:
  using Function = std::function<void(ReplicaWriter&)>;

  // The writer's session belongs to this from now on, and outlives it.
  explicit GroupCommit(ReplicaWriter& writer) : writer_(writer) {}

  // Runs the function in a transaction and returns once that is in the log.
  void commit(const Function& function) TULO_EXCLUDES(mutex_);
  // How many transactions there were.
  std::uint64_t commits() const { return commits_; }

  // The writer's session for the scope, if nobody has it.
  class Lease {
   public:
    explicit Lease(GroupCommit& owner) : owner_(owner), held_(owner.tryLead()) {}
    ~Lease() {
      if (held_) owner_.endLead();
    }
    Lease(const Lease&) = delete;
    Lease& operator=(const Lease&) = delete;

    // Null when somebody writes. For reading only.
    ReplicaReader* reader() { return held_ ? &owner_.writer_ : nullptr; }

   private:
    GroupCommit& owner_;
    const bool held_;
  };

 private:
  struct Waiting {
    const Function* function;
    std::exception_ptr error;
    bool done = false;  // by the queue's lock
  };

  bool tryLead() TULO_EXCLUDES(mutex_);
  void endLead() TULO_EXCLUDES(mutex_);
  void runAll(std::deque<Waiting*>& batch);
  void runOne(Waiting& waiting, bool alone);
  void rollBack();

  // The leader lets go of it while the transaction runs.
  Mutex mutex_;
  Condition changed_;
  std::deque<Waiting*> queue_ TULO_GUARDED_BY(mutex_);
  bool leading_ TULO_GUARDED_BY(mutex_) = false;

  ReplicaWriter& writer_;  // only who leads touches it
  std::atomic<std::uint64_t> commits_ = 0;
};

}  // namespace tulo
