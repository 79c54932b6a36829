#include "cli/demo/Interruption.h"

#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <utility>

#include "platform/linux/Mutex.h"

namespace tulo::cli::demo {
namespace {

sigset_t signalsOfInterest() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGUSR1})
    sigaddset(&signals, signal);
  return signals;
}

}  // namespace

// SIGUSR1 wakes the thread up so that it sees that it is to end.
struct Interruption::State {
  std::atomic<bool> isEnding = false;
  std::atomic<int> signal = 0;
  Mutex mutex;  // held while it runs
  std::function<void()> wakeUp TULO_GUARDED_BY(mutex);

  void loop() {
    const sigset_t signals = signalsOfInterest();
    while (!isEnding) {
      int received = 0;
      if (sigwait(&signals, &received) != 0 || received == SIGUSR1) continue;
      signal = received;
      signal.notify_all();
      const MutexLock lock(mutex);
      if (wakeUp) wakeUp();
    }
  }
};

Interruption::Interruption() : state_(std::make_shared<State>()) {
  const sigset_t signals = signalsOfInterest();
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  thread_ = std::thread([state = state_] { state->loop(); });
}

Interruption::~Interruption() {
  state_->isEnding = true;
  pthread_kill(thread_.native_handle(), SIGUSR1);
  thread_.join();
}

int Interruption::received() const {
  return state_->signal;
}

void Interruption::check() const {
  if (received() != 0) throw Interrupted(received());
}

void Interruption::wait() const {
  state_->signal.wait(0);
  throw Interrupted(received());
}

void Interruption::setWakeUp(std::function<void()> wakeUp) {
  const MutexLock lock(state_->mutex);
  state_->wakeUp = std::move(wakeUp);
}

}  // namespace tulo::cli::demo
