#include "service/mount/RequestLoop.h"

#include <sched.h>

#include <thread>
#include <utility>
#include <vector>

namespace tulo {

namespace {

// The loop whose turn this thread has, and the number of the request that it handles.
struct Turn {
  RequestLoop* loop = nullptr;
  std::uint64_t number = 0;
};

thread_local Turn ownTurn;

}  // namespace

RequestLoop::Options RequestLoop::usualOptions() {
  Options options;
  cpu_set_t processors;
  CPU_ZERO(&processors);
  const bool known = ::sched_getaffinity(0, sizeof processors, &processors) == 0;
  if (!known || CPU_COUNT(&processors) < 2) options.alert = Duration::zero();
  return options;
}

void RequestLoop::run() {
  std::vector<std::thread> threads;
  for (unsigned slot = 1; slot < options_.threads; ++slot)
    threads.emplace_back([this, slot] { work(slot); });
  work(0);
  for (std::thread& thread : threads)
    thread.join();
}

void RequestLoop::stop() {
  end();
  source_.wake();
}

void RequestLoop::end() {
  MutexLock lock(mutex_);
  ended_ = true;
  deputyWanted_.notifyAll();
  turnOffered_.notifyAll();
}

void RequestLoop::work(unsigned slot) {
  while (awaitTurn())
    takeRequests(slot);
}

// False when there is nothing to do any more.
bool RequestLoop::awaitTurn() {
  MutexLock lock(mutex_);
  while (!ended_ && hasDeputy_)
    deputyWanted_.wait(lock);
  if (ended_) return false;
  hasDeputy_ = true;
  const bool taken = watchTurn(lock);
  hasDeputy_ = false;
  return taken;
}

// The deputy's part: the turn is offered to it, or it takes it from somebody who is too long about
// one request.
bool RequestLoop::watchTurn(MutexLock& lock) {
  Number seen = 0;
  unsigned quiet = 0;
  for (;;) {
    if (quiet < options_.quietRounds) {
      watchAwhile(lock);
    } else {
      sleepAsDeputy(lock);
      quiet = 0;
    }
    if (ended_) return false;
    if (std::exchange(offered_, false)) return true;
    Number now = handled_;
    if (now != 0 && now == seen && handled_.compare_exchange_strong(now, 0)) return true;
    seen = now;
    quiet = resting_ ? quiet + 1 : 0;
  }
}

void RequestLoop::watchAwhile(MutexLock& lock) {
  const Clock::time_point end = Clock::now() + options_.patience;
  while (!ended_ && !offered_ && turnOffered_.waitUntil(lock, end)) {
  }
}

void RequestLoop::sleepAsDeputy(MutexLock& lock) {
  deputySleeps_ = true;
  // Whoever begins to handle a request now either sees that the deputy sleeps, or is seen here.
  while (!ended_ && !offered_ && deputySleeps_ && resting_)
    turnOffered_.wait(lock);
  deputySleeps_ = false;
}

void RequestLoop::offerTurn() {
  MutexLock lock(mutex_);
  offered_ = true;
  (hasDeputy_ ? turnOffered_ : deputyWanted_).notifyOne();
}

// Whoever had the turn before is usually back by now.
void RequestLoop::ensureDeputy() {
  if (hasDeputy_) return;
  MutexLock lock(mutex_);
  if (!hasDeputy_) deputyWanted_.notifyOne();
}

void RequestLoop::passTurn() {
  Turn& turn = ownTurn;
  if (!turn.loop) return;
  RequestLoop& loop = *std::exchange(turn.loop, nullptr);
  Number number = turn.number;
  if (loop.handled_.compare_exchange_strong(number, 0)) loop.offerTurn();
}

// Until the turn is somebody else's.
void RequestLoop::takeRequests(unsigned slot) {
  // It was passed on because somebody has much to do, or waits: no time to keep a processor busy.
  pause_ = Clock::duration::max();
  while (receive(slot)) {
    const Number number = ++last_;
    ensureDeputy();
    ownTurn = {this, number};
    handled_ = number;
    source_.handle(slot);
    ownTurn.loop = nullptr;
    Number mine = number;
    if (!handled_.compare_exchange_strong(mine, 0)) return;
  }
}

// False when there is no more to come.
bool RequestLoop::receive(unsigned slot) {
  const Clock::time_point begin = Clock::now();
  // The one before came so soon that the next one may, too; being woken takes its time as well.
  const bool alert = pause_ < 2 * options_.alert;
  while (!ended_) {
    const RequestSource::Taken taken = source_.take(slot);
    if (taken == RequestSource::Taken::end) {
      end();
      return false;
    }
    pause_ = Clock::now() - begin;
    if (taken == RequestSource::Taken::request) return true;
    if (alert && pause_ < options_.alert) {
      ::sched_yield();
    } else {
      rest();
    }
  }
  return false;
}

void RequestLoop::rest() {
  resting_ = true;
  source_.await();
  resting_ = false;
  if (!deputySleeps_.exchange(false)) return;
  MutexLock lock(mutex_);
  turnOffered_.notifyOne();
}

}  // namespace tulo
