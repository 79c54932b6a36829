#include "host/index/Ulid.h"

#include <gtest/gtest.h>

#include <chrono>
#include <set>
#include <string>

namespace tulo::host {
namespace {

constexpr UlidSource::Time then{std::chrono::milliseconds(1'700'000'000'000)};

TEST(UlidTest, TextHasTheTimeInItsFirstTenCharacters) {
  UlidBytes bytes{};
  // 1,469,918,176,385 milliseconds, as 48 bits.
  bytes[0] = 0x01;
  bytes[1] = 0x56;
  bytes[2] = 0x3D;
  bytes[3] = 0xF3;
  bytes[4] = 0x64;
  bytes[5] = 0x81;
  EXPECT_EQ(ulidText(bytes), "01ARYZ6S410000000000000000");
}

TEST(UlidTest, GreatestAndSmallestValuesRoundTrip) {
  UlidBytes most;
  most.fill(0xFF);
  EXPECT_EQ(ulidText(most), "7ZZZZZZZZZZZZZZZZZZZZZZZZZ");
  EXPECT_EQ(ulidBytes("7ZZZZZZZZZZZZZZZZZZZZZZZZZ"), most);
  EXPECT_EQ(ulidBytes("00000000000000000000000000"), UlidBytes{});
}

TEST(UlidTest, OtherTextIsNoUlid) {
  for (const std::string text :
       {"", "0", "8ZZZZZZZZZZZZZZZZZZZZZZZZZ", "0000000000000000000000000I",
        "000000000000000000000000000", "0000000000000000000000000o"}) {
    EXPECT_FALSE(ulidBytes(text)) << text;
  }
}

TEST(UlidSourceTest, EachIsGreaterThanTheOneBeforeWithinAMillisecond) {
  UlidSource source([] { return then; });
  std::string last = source.next();
  for (int i = 0; i < 10'000; ++i) {
    std::string next = source.next();
    ASSERT_LT(last, next);
    ASSERT_EQ(next.substr(0, 10), last.substr(0, 10));
    last = std::move(next);
  }
}

TEST(UlidSourceTest, OrderSurvivesAClockThatGoesBack) {
  UlidSource::Time now = then;
  UlidSource source([&] { return now; });
  const std::string before = source.next();
  now -= std::chrono::hours(1);
  EXPECT_LT(before, source.next());
}

TEST(UlidSourceTest, FollowsTheGreatestOfAnEarlierRun) {
  UlidSource source;
  const std::string far = "7ZZZZZZZZZ0000000000000000";
  source.follow(far);
  source.follow("01ARYZ6S410000000000000000");
  source.follow("not a ulid");
  EXPECT_GT(source.next(), far);
}

// A run that was killed may have given one that is not in the index, or not any more.
TEST(UlidSourceTest, GivesNoneAgainThatAnEarlierRunMayHaveGiven) {
  UlidSource before([] { return then; });
  const std::string known = before.next();
  std::set<std::string> given;
  for (int i = 0; i < 100; ++i)
    given.insert(before.next());
  for (int run = 0; run < 100; ++run) {
    UlidSource source([] { return then - std::chrono::hours(1); });
    source.follow(known);
    const std::string next = source.next();
    EXPECT_GT(next, known);
    EXPECT_TRUE(given.insert(next).second) << next;
  }
}

TEST(UlidSourceTest, RandomPartsDiffer) {
  UlidSource::Time now = then;
  UlidSource source([&] { return now += std::chrono::milliseconds(1); });
  std::set<std::string> seen;
  for (int i = 0; i < 1000; ++i)
    seen.insert(source.next().substr(10));
  EXPECT_EQ(seen.size(), 1000U);
}

}  // namespace
}  // namespace tulo::host
