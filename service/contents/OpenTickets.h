// Who waits for an open, each with a ticket.
//
// Waiting takes two steps, so that an interrupt can be armed between them: no completion is called
// before arm(). Each is called exactly once, by whoever comes first: an answer, a cancel, stop().
//
// Threads: every member may be called on any thread; completions come on the caller's.
#pragma once

#include <cstdint>
#include <functional>
#include <unordered_map>

#include "platform/linux/Mutex.h"
#include "service/contents/OpenFile.h"

namespace tulo {

using OpenCompletion = std::function<void(OpenAnswer)>;

class OpenTickets {
 public:
  using Ticket = std::uint64_t;

  Ticket add(OpenCompletion completion) TULO_EXCLUDES(mutex_);
  // False when nobody waits any more; who was cancelled before is answered here.
  bool arm(Ticket ticket) TULO_EXCLUDES(mutex_);
  void answer(Ticket ticket, OpenAnswer answer) TULO_EXCLUDES(mutex_);
  // The opener gave up: EINTR.
  void cancel(Ticket ticket) TULO_EXCLUDES(mutex_);
  // Whoever waits is told EINTR, and so is whoever comes later.
  void stop() TULO_EXCLUDES(mutex_);

 private:
  struct Waiter {
    OpenCompletion completion;
    bool armed = false;
    bool cancelled = false;
  };
  enum class State { gone, waiting, cancelled };

  State armed(Ticket ticket) TULO_EXCLUDES(mutex_);
  bool mayBeAnswered(Ticket ticket) TULO_EXCLUDES(mutex_);
  OpenCompletion take(Ticket ticket) TULO_EXCLUDES(mutex_);

  // A leaf; never held while a completion runs.
  Mutex mutex_;
  bool stopping_ TULO_GUARDED_BY(mutex_) = false;
  Ticket next_ TULO_GUARDED_BY(mutex_) = 1;
  std::unordered_map<Ticket, Waiter> waiters_ TULO_GUARDED_BY(mutex_);
};

}  // namespace tulo
