#include "host/folder/RetryPause.h"

#include <gtest/gtest.h>

namespace tulo::host {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

// The times are those of a clock that the test moves.
class RetryPauseTest : public testing::Test {
 protected:
  // How long the pause is after an attempt that took so long.
  milliseconds fail(milliseconds took = {}) {
    const auto begun = now_;
    now_ += took;
    pause_.failed(begun, now_);
    return pause_.waitTime(longest_, now_);
  }

  static constexpr milliseconds longest_{600'000};
  RetryPause pause_;
  RetryPause::Clock::time_point now_{std::chrono::hours(1)};
};

TEST_F(RetryPauseTest, WithoutAFailureThereIsNothingToWaitFor) {
  EXPECT_FALSE(pause_.isPending());
  EXPECT_FALSE(pause_.isWaiting(now_));
  EXPECT_FALSE(pause_.isDue(now_));
  EXPECT_EQ(pause_.waitTime(longest_, now_), longest_);
}

TEST_F(RetryPauseTest, AFailureIsTriedAgainAfterItsPause) {
  const milliseconds pause = fail();
  EXPECT_TRUE(pause_.isWaiting(now_));
  EXPECT_FALSE(pause_.isDue(now_));
  now_ += pause;
  EXPECT_FALSE(pause_.isWaiting(now_));
  EXPECT_TRUE(pause_.isDue(now_));
  EXPECT_EQ(pause_.waitTime(longest_, now_), milliseconds(0));
}

TEST_F(RetryPauseTest, PausesGrowUpToABound) {
  milliseconds last = fail();
  EXPECT_LE(last, milliseconds(500));
  for (int i = 0; i < 20; ++i) {
    const milliseconds next = fail();
    EXPECT_GE(next, last);
    last = next;
  }
  EXPECT_LE(last, seconds(5));
}

TEST_F(RetryPauseTest, ASuccessBeginsAnew) {
  const milliseconds first = fail();
  fail();
  pause_.succeeded();
  EXPECT_FALSE(pause_.isPending());
  EXPECT_EQ(fail(), first);
}

TEST_F(RetryPauseTest, WhatTakesLongIsTriedLessOften) {
  EXPECT_GE(fail(seconds(10)), seconds(40));
}

}  // namespace
}  // namespace tulo::host
