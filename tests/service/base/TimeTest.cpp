#include "service/base/Time.h"

#include <gtest/gtest.h>

namespace tulo::test {
namespace {

TEST(TimeTest, TheSteadyClockNeverGoesBack) {
  WallTime before = steadyClock();
  for (int i = 0; i < 1000; ++i) {
    const WallTime now = steadyClock();
    EXPECT_GE(now, before);
    before = now;
  }
}

TEST(TimeTest, TheSteadyClockBeginsAtTheWallsTime) {
  // Unless somebody sets the clock just now.
  EXPECT_LT(std::chrono::abs(steadyClock() - systemClock()), std::chrono::minutes(1));
}

}  // namespace
}  // namespace tulo::test
