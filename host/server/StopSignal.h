// Lets threads that wait for something else notice that the host is stopping.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace tulo::host {

// Threads: every member may be called on any thread.
class StopSignal {
 public:
  void raise() {
    const std::lock_guard lock(mutex_);
    raised_ = true;
    condition_.notify_all();
  }

  bool isRaised() {
    const std::lock_guard lock(mutex_);
    return raised_;
  }

  // True as soon as the signal is raised, false when `time` has passed.
  template <typename Duration>
  bool wait(Duration time) {
    std::unique_lock lock(mutex_);
    return condition_.wait_for(lock, time, [this] { return raised_; });
  }

 private:
  std::mutex mutex_;
  std::condition_variable condition_;
  bool raised_ = false;
};

}  // namespace tulo::host
