// The times that the service counts in.
#pragma once

#include <chrono>
#include <ctime>
#include <functional>

namespace tulo {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using std::chrono::seconds;

// A time of the wall's clock, as the journal keeps it: when a change is due.
using WallTime = std::chrono::sys_time<milliseconds>;
// What a test steers; everything else uses systemClock for what people are shown, and steadyClock
// for what is waited for.
using WallClock = std::function<WallTime()>;

inline WallTime systemClock() {
  return std::chrono::time_point_cast<milliseconds>(std::chrono::system_clock::now());
}

// What waits are measured by: goes on evenly, also while the machine sleeps, whatever somebody sets
// the wall's clock to. It begins at the wall's time when the process first asks, so that what the
// replica stores can be compared with it; a later process may begin elsewhere, so stored times are
// capped when they are read.
inline WallTime steadyClock() {
  const auto sinceBoot = [] {
    timespec time = {};
    ::clock_gettime(CLOCK_BOOTTIME, &time);
    return seconds(time.tv_sec) + std::chrono::floor<milliseconds>(nanoseconds(time.tv_nsec));
  };
  static const milliseconds begun = systemClock().time_since_epoch() - sinceBoot();
  return WallTime(begun + sinceBoot());
}

// The wall's clock in whole seconds, as most columns of the replica keep it.
using WallSeconds = std::chrono::sys_seconds;

inline WallSeconds secondsNow() {
  return std::chrono::floor<seconds>(std::chrono::system_clock::now());
}

inline WallSeconds inSeconds(WallTime time) {
  return std::chrono::floor<seconds>(time);
}

inline WallSeconds steadySeconds() {
  return inSeconds(steadyClock());
}

// When a file was changed. In two parts, as stat(2) has it: what a host says may lie farther away
// than nanoseconds in one number reach.
struct FileTime {
  WallSeconds whole{};
  nanoseconds beyond{};  // less than a second

  static FileTime of(WallTime time) {
    const WallSeconds whole = inSeconds(time);
    return {whole, time - whole};
  }
  static FileTime of(const timespec& time) {
    return {WallSeconds(seconds(time.tv_sec)), nanoseconds(time.tv_nsec)};
  }
  timespec spec() const { return {whole.time_since_epoch().count(), beyond.count()}; }

  friend bool operator==(const FileTime&, const FileTime&) = default;
};

}  // namespace tulo
