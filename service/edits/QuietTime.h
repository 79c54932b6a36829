// When a change goes up that is made now: once nothing was changed for a while.
//
// Threads: immutable after construction; the clock may be asked on any thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <utility>

namespace tulo {

// Milliseconds since 1970.
using MillisecondClock = std::function<std::int64_t()>;

inline MillisecondClock systemClock() {
  return [] {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
  };
}

class QuietTime {
 public:
  QuietTime(MillisecondClock clock, std::int64_t length)
      : clock_(std::move(clock)), length_(length) {}

  std::int64_t now() const { return clock_(); }
  std::int64_t length() const { return length_; }
  std::int64_t due() const { return now() + length_; }

 private:
  MillisecondClock clock_;
  std::int64_t length_;
};

}  // namespace tulo
