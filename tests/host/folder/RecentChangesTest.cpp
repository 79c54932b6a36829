#include "host/folder/RecentChanges.h"

#include <gmock/gmock.h>

namespace tulo::host {
namespace {

using std::chrono::hours;
using std::chrono::seconds;
using Clock = RecentChanges::Clock;

TEST(RecentChangesTest, KnowsSinceWhen) {
  RecentChanges changes;
  const Clock::time_point now = Clock::now();
  changes.note("a", now);
  changes.note("b", now + seconds(2));
  EXPECT_TRUE(changes.isSince("a", now));
  EXPECT_FALSE(changes.isSince("a", now + seconds(1)));
  EXPECT_FALSE(changes.isSince("c", now - hours(1)));
  EXPECT_THAT(changes.since(now), testing::UnorderedElementsAre("a", "b"));
  EXPECT_THAT(changes.since(now + seconds(1)), testing::ElementsAre("b"));
}

TEST(RecentChangesTest, TheLastTimeCounts) {
  RecentChanges changes;
  const Clock::time_point now = Clock::now();
  changes.note("a", now);
  changes.note("a", now + seconds(2));
  EXPECT_TRUE(changes.isSince("a", now + seconds(1)));
}

TEST(RecentChangesTest, WhatIsOldDoesNotPileUp) {
  RecentChanges changes;
  const Clock::time_point now = Clock::now();
  for (int i = 0; i < 20'000; ++i)
    changes.note(std::to_string(i), now + seconds(i));
  EXPECT_LE(changes.since(now).size(), 10'000U);
  changes.forgetAll();
  EXPECT_TRUE(changes.since(now).empty());
}

TEST(RecentChangesTest, ASenderLookedBeforeItsCopyWasBegun) {
  const auto wall = std::chrono::system_clock::now();
  EXPECT_LT(RecentChanges::lookBefore(DiskTime(wall - seconds(10))), Clock::now() - seconds(10));
  EXPECT_GT(RecentChanges::lookBefore(DiskTime(wall - seconds(10))), Clock::now() - seconds(20));
  // Of a clock that was set meanwhile.
  EXPECT_LT(RecentChanges::lookBefore(DiskTime(wall + hours(24))), Clock::now());
  EXPECT_GT(RecentChanges::lookBefore(DiskTime(wall + hours(24))), Clock::now() - seconds(10));
  EXPECT_GT(RecentChanges::lookBefore(DiskTime()), Clock::now() - hours(2));
}

}  // namespace
}  // namespace tulo::host
