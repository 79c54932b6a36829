// Lets threads that wait for something else notice that the host is stopping.
#pragma once

#include <chrono>

#include "platform/linux/Mutex.h"

namespace tulo::host {

// Threads: every member may be called on any thread.
class StopSignal {
 public:
  void raise() TULO_EXCLUDES(mutex_) {
    const MutexLock lock(mutex_);
    raised_ = true;
    condition_.notifyAll();
  }

  bool isRaised() TULO_EXCLUDES(mutex_) {
    const MutexLock lock(mutex_);
    return raised_;
  }

  // True as soon as the signal is raised, false when `time` has passed.
  template <typename Duration>
  bool wait(Duration time) TULO_EXCLUDES(mutex_) {
    const auto end = std::chrono::steady_clock::now() + time;
    MutexLock lock(mutex_);
    while (!raised_) {
      if (!condition_.waitUntil(lock, end)) break;
    }
    return raised_;
  }

 private:
  Mutex mutex_;
  Condition condition_;
  bool raised_ TULO_GUARDED_BY(mutex_) = false;
};

}  // namespace tulo::host
