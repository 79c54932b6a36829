// When a change goes up that is made now: once nothing was changed for a while.
//
// Threads: immutable after construction; the clock may be asked on any thread.
#pragma once

#include <utility>

#include "service/base/Time.h"

namespace tulo {

class QuietTime {
 public:
  // `wall`: the clock that people see, where that is another one.
  QuietTime(WallClock clock, milliseconds length, WallClock wall = nullptr)
      : clock_(std::move(clock)), wall_(std::move(wall)), length_(length) {}

  // What waits are measured by.
  WallTime now() const { return clock_(); }
  // What people are shown as the time of a change.
  WallTime wallNow() const { return wall_ ? wall_() : clock_(); }
  milliseconds length() const { return length_; }
  WallTime due() const { return now() + length_; }
  // How long a file that is open for writing must have been left alone before it goes up as it is.
  milliseconds lengthWhileOpen() const { return kWhileOpen * length_; }

 private:
  static constexpr int kWhileOpen = 30;

  WallClock clock_;
  WallClock wall_;
  milliseconds length_;
};

}  // namespace tulo
