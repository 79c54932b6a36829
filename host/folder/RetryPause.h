// How long to wait before what failed is tried again: longer each time, up to a bound, and never so
// short that trying is most of what is done.
//
// Threads: belongs to one thread at a time.
#pragma once

#include <chrono>

namespace tulo::host {

class RetryPause {
 public:
  using Clock = std::chrono::steady_clock;

  // An attempt that began at `begun` has failed.
  void failed(Clock::time_point begun, Clock::time_point now);
  void succeeded() { pause_ = {}; }

  // Whether the last attempt has failed.
  bool isPending() const { return pause_ != Clock::duration::zero(); }
  bool isWaiting(Clock::time_point now) const { return isPending() && now < end_; }
  bool isDue(Clock::time_point now) const { return isPending() && now >= end_; }
  // How long to wait for something else before asking again, `longest` where nothing has failed.
  std::chrono::milliseconds waitTime(std::chrono::milliseconds longest,
                                     Clock::time_point now) const;

 private:
  Clock::duration pause_{};
  Clock::time_point end_;
};

}  // namespace tulo::host
