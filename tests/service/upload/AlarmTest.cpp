#include "service/upload/Alarm.h"

#include <gtest/gtest.h>

#include <thread>

#include "tests/support/Eventually.h"

namespace tulo::test {
namespace {

constexpr std::chrono::milliseconds kShort{1};
constexpr std::chrono::milliseconds kLong = patience;

TEST(AlarmTest, RestsUntilItIsTime) {
  Alarm alarm;
  EXPECT_TRUE(alarm.begin());
  const auto began = std::chrono::steady_clock::now();
  EXPECT_FALSE(alarm.rest(kShort));
  EXPECT_GE(std::chrono::steady_clock::now() - began, kShort);
}

TEST(AlarmTest, NewsSinceTheBeginningEndTheRestAtOnce) {
  Alarm alarm;
  alarm.begin();
  alarm.wake();
  EXPECT_TRUE(alarm.rest(kLong));
}

TEST(AlarmTest, NewsFromBeforeAreForgotten) {
  Alarm alarm;
  alarm.wake();
  alarm.begin();
  EXPECT_FALSE(alarm.rest(kShort));
}

TEST(AlarmTest, NewsDuringTheRestEndIt) {
  Alarm alarm;
  alarm.begin();
  std::thread other([&] { alarm.wake(); });
  EXPECT_TRUE(alarm.rest(kLong));
  other.join();
}

TEST(AlarmTest, AStopEndsTheRestAndAllThatFollow) {
  Alarm alarm;
  alarm.begin();
  std::thread other([&] { alarm.stop(); });
  EXPECT_FALSE(alarm.rest(kLong));
  other.join();
  EXPECT_TRUE(alarm.isStopped());
  EXPECT_FALSE(alarm.begin());
}

}  // namespace
}  // namespace tulo::test
