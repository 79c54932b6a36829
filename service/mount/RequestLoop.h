// Takes requests and has them handled on a few threads.
//
// One thread at a time has the turn: it takes a request and handles it, too, since waking another
// one takes longer than most requests do. A handler that is about to wait passes the turn on
// (passTurn). From one that takes longer than expected without saying so, a deputy takes it; so no
// request holds up others for more than about twice Options::patience as long as a thread is left.
//
// For a short time after a request the thread looks for the next one without sleeping, if requests
// came in quick succession: a program that makes one call after the other then need not wait until
// the thread is awake. It yields the processor meanwhile to whoever else wants it.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>

#include "platform/linux/Mutex.h"

namespace tulo {

// Where requests come from and what becomes of them. Threads: take and await on one thread at a
// time, the others on any.
class RequestSource {
 public:
  enum class Taken { request, nothing, end };

  virtual ~RequestSource() = default;
  // Takes the next request into the slot, if there is one; does not wait. Each thread has a slot of
  // its own.
  virtual Taken take(unsigned slot) = 0;
  // Returns when a request waits, or after wake().
  virtual void await() = 0;
  virtual void wake() = 0;
  // Must not throw.
  virtual void handle(unsigned slot) = 0;
};

class RequestLoop {
 public:
  using Duration = std::chrono::microseconds;

  struct Options {
    unsigned threads = 8;
    // How long one request may be handled until somebody else takes the turn.
    Duration patience{500};
    // After as many times that in which no request came, the deputy sleeps until one does.
    unsigned quietRounds = 20;
    // How long the next request is looked for without sleeping; 0: not at all.
    Duration alert{50};
  };

  // What suits this machine: with a single processor there is nobody to be alert for.
  static Options usualOptions();

  RequestLoop(RequestSource& source, Options options) : source_(source), options_(options) {}
  RequestLoop(const RequestLoop&) = delete;
  RequestLoop& operator=(const RequestLoop&) = delete;

  // Returns after the source said that it is at its end, or after stop(), once every thread is done
  // with its request.
  void run();
  // May be called on any thread, before run() too.
  void stop();

  // Called by a handler on its own thread that is about to wait: somebody else takes requests
  // meanwhile. Does nothing on other threads.
  static void passTurn();

 private:
  using Clock = std::chrono::steady_clock;
  using Number = std::uint64_t;

  void work(unsigned slot);
  bool awaitTurn() TULO_EXCLUDES(mutex_);
  bool watchTurn(MutexLock& lock) TULO_REQUIRES(mutex_);
  // Until the turn is offered, the loop ends, or the patience is over.
  void watchAwhile(MutexLock& lock) TULO_REQUIRES(mutex_);
  // Until the turn is offered, the loop ends, or a request came.
  void sleepAsDeputy(MutexLock& lock) TULO_REQUIRES(mutex_);
  void takeRequests(unsigned slot);
  bool receive(unsigned slot);
  void rest() TULO_EXCLUDES(mutex_);
  void offerTurn() TULO_EXCLUDES(mutex_);
  void ensureDeputy() TULO_EXCLUDES(mutex_);
  void end() TULO_EXCLUDES(mutex_);

  RequestSource& source_;
  const Options options_;

  // The number of the request that the thread with the turn handles, so that the turn can be taken
  // from it; 0 while it takes one, or while nobody has the turn.
  std::atomic<Number> handled_ = 0;
  std::atomic<bool> resting_ = false;  // the thread with the turn sleeps until a request comes
  std::atomic<bool> ended_ = false;

  // Touched only with the turn.
  Number last_ = 0;
  Clock::duration pause_ = Clock::duration::max();  // before the last request

  Mutex mutex_;  // a leaf
  Condition deputyWanted_;
  Condition turnOffered_;
  bool offered_ TULO_GUARDED_BY(mutex_) = true;
  // Changed with the lock held, so that nobody who waits misses it; looked at without.
  std::atomic<bool> hasDeputy_ = false;
  std::atomic<bool> deputySleeps_ = false;
};

}  // namespace tulo
