#include "service/replica/CacheRoom.h"

#include <gtest/gtest.h>

#include "tests/support/TemporaryDirectory.h"

namespace tulo::test {
namespace {

constexpr CacheLimits kSmall = {1000, 0, 0};

TEST(CacheRoomTest, WhatIsThereAndWhatIsOnItsWayCountAgainstTheLimit) {
  const TemporaryDirectory directory;
  CacheRoom room(directory.path(), kSmall);
  EXPECT_EQ(room.shortage(1000), 0);
  EXPECT_EQ(room.shortage(1001), 1);
  room.setUsed(600);
  room.addUsed(-100);
  room.reserve(300);
  EXPECT_EQ(room.used(), 500);
  EXPECT_EQ(room.reserved(), 300);
  EXPECT_EQ(room.shortage(200), 0);
  EXPECT_EQ(room.shortage(201), 1);
  room.reserve(-300);
  EXPECT_EQ(room.shortage(500), 0);
}

TEST(CacheRoomTest, TheLimitOfTheCacheIsNoLimitOfTheDisk) {
  const TemporaryDirectory directory;
  CacheRoom room(directory.path(), kSmall);
  room.setUsed(1'000'000);
  EXPECT_GT(room.shortage(0), 0);
  EXPECT_EQ(room.diskShortage(0), 0);
}

TEST(CacheRoomTest, WhatIsToStayFreeOnTheDiskIsMissing) {
  const TemporaryDirectory directory;
  constexpr std::int64_t kMoreThanAnyDisk = std::int64_t{1} << 60;
  CacheRoom bytes(directory.path(), {kMoreThanAnyDisk, 0, kMoreThanAnyDisk});
  EXPECT_GT(bytes.diskShortage(0), 0);
  EXPECT_EQ(bytes.shortage(0), bytes.diskShortage(0));
  CacheRoom fraction(directory.path(), {kMoreThanAnyDisk, 1.0, 0});
  EXPECT_GT(fraction.diskShortage(0), 0);
}

TEST(CacheRoomTest, ADiskThatCannotBeAskedDoesNotStopAnybody) {
  const TemporaryDirectory directory;
  const CacheRoom room(directory.file("missing"), {1 << 20, 1.0, 0});
  EXPECT_EQ(room.diskShortage(1), 0);
}

}  // namespace
}  // namespace tulo::test
