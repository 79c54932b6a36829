// How soon the background lists the next folder that nobody asks for.
//
// A commit now and then is followed at once: a moment at full speed, then resting as long as it
// works. But each commit makes every folder stale, and where they pour in, as they do while our own
// changes go up, following each would cost more than the changes themselves. Then one folder is
// listed now and then, until the commits cease.
//
// Threads: one at a time; the time is handed in.
#pragma once

#include <algorithm>
#include <chrono>

namespace tulo {

class SweepPace {
 public:
  using Clock = std::chrono::steady_clock;
  using Time = Clock::time_point;
  using Milliseconds = std::chrono::milliseconds;

  static constexpr Milliseconds kFreeRun{300};
  // A commit shows more than once: in the log, in the published state, in the database itself.
  static constexpr Milliseconds kOneCommit{50};
  // Commits that come faster than this are too many once they have done so for a while.
  static constexpr Milliseconds kUsualGap{150};
  static constexpr Milliseconds kBurst{750};
  static constexpr Milliseconds kCalm{500};
  static constexpr Milliseconds kSparse{400};

  // The host has committed something. Every commit takes its gap from an account that fills with
  // time; it is never overdrawn by more than calms down soon.
  void committed(Time now) {
    if (now - counted_ < kOneCommit) return;
    counted_ = now;
    paidUntil_ = std::min(std::max(paidUntil_, now) + kUsualGap, now + kBurst + kCalm);
  }
  bool isPouring(Time now) const { return paidUntil_ > now + kBurst; }

  // Listings begin that follow one another, and one of them began and ended.
  void beganRun(Time now) { runBegan_ = now; }
  void listed(Time began, Time ended) {
    lastBegan_ = began;
    lastEnded_ = ended;
  }

  // The next one shall not begin before.
  Time due(Time now) const {
    if (isPouring(now)) return lastBegan_ + kSparse;
    const bool free = lastEnded_ - runBegan_ <= kFreeRun;
    return free ? lastEnded_ : lastEnded_ + (lastEnded_ - lastBegan_);
  }

 private:
  Time counted_;
  Time paidUntil_;
  Time runBegan_;
  Time lastBegan_;
  Time lastEnded_;
};

}  // namespace tulo
