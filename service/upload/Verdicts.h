// Who waits for the host's word on a change: programs in a mount that was made with --sync.
//
// Threads: every member may be called on any thread. Completions run on the thread that brings the
// verdict, with no lock held, each exactly once.
// Lifetime: failAll() before what the completions refer to goes.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "platform/linux/Mutex.h"
#include "service/base/Time.h"
#include "service/replica/Ids.h"

namespace tulo {

class Verdicts {
 public:
  using Ticket = std::uint64_t;
  // 0: the host has it, or need not hear of it. Else an errno; the change may still be on its way.
  using Completion = std::function<void(int error)>;

  // The ticket can be given to cancel() before the waiting begins.
  Ticket begin(Completion completion);
  // Waits for the changes of the nodes, not longer than until `deadline`. Nothing when the ticket
  // was cancelled meanwhile.
  void await(Ticket ticket, const std::vector<NodeId>& nodes, WallTime deadline);
  // Nothing when the completion ran already.
  void cancel(Ticket ticket, int error);

  bool isAwaited(NodeId node) const;
  std::vector<NodeId> awaited() const;

  // Nothing of the node's change is left to be done.
  void settled(NodeId node);
  void failed(NodeId node, int error);
  // Of all that wait already.
  void failAll(int error);
  // Ends the waiting of those whose deadline has passed, with ETIMEDOUT.
  void expire(WallTime now);
  std::optional<WallTime> nextDeadline() const;

 private:
  struct Waiter {
    Completion completion;
    std::unordered_set<NodeId> nodes;
    WallTime deadline{};
    bool waits = false;
  };

  template <typename Predicate>
  void finishWhere(const Predicate& predicate, int error) TULO_EXCLUDES(mutex_);

  // A leaf.
  mutable Mutex mutex_;
  std::unordered_map<Ticket, Waiter> waiters_ TULO_GUARDED_BY(mutex_);
  Ticket next_ TULO_GUARDED_BY(mutex_) = 1;
};

}  // namespace tulo
