// When a change goes up that is made now: once nothing was changed for a while.
//
// Threads: immutable after construction; the clock may be asked on any thread.
#pragma once

#include <utility>

#include "service/base/Time.h"

namespace tulo {

class QuietTime {
 public:
  QuietTime(WallClock clock, milliseconds length) : clock_(std::move(clock)), length_(length) {}

  WallTime now() const { return clock_(); }
  milliseconds length() const { return length_; }
  WallTime due() const { return now() + length_; }

 private:
  WallClock clock_;
  milliseconds length_;
};

}  // namespace tulo
