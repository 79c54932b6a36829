// Times in a test, in short.
#pragma once

#include <cstdint>

#include "service/base/Time.h"

namespace tulo::test {

// So many milliseconds after the clock's beginning.
inline WallTime at(std::int64_t count) {
  return WallTime(milliseconds(count));
}

inline WallSeconds atSecond(std::int64_t count) {
  return WallSeconds(seconds(count));
}

}  // namespace tulo::test
