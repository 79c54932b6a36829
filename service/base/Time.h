// The times that the service counts in.
#pragma once

#include <chrono>
#include <functional>

namespace tulo {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using std::chrono::seconds;

// The wall's clock, as the journal keeps it: when a change is due.
using WallTime = std::chrono::sys_time<milliseconds>;
// What a test steers; everything else uses systemClock().
using WallClock = std::function<WallTime()>;

inline WallTime systemClock() {
  return std::chrono::time_point_cast<milliseconds>(std::chrono::system_clock::now());
}

// The wall's clock in whole seconds, as most columns of the replica keep it.
using WallSeconds = std::chrono::sys_seconds;

inline WallSeconds secondsNow() {
  return std::chrono::floor<seconds>(std::chrono::system_clock::now());
}

// When a file was changed. In two parts, as stat(2) has it: what a host says may lie farther away
// than nanoseconds in one number reach.
struct FileTime {
  WallSeconds whole{};
  nanoseconds beyond{};  // less than a second

  friend bool operator==(const FileTime&, const FileTime&) = default;
};

}  // namespace tulo
