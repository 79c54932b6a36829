#include "service/contents/RoomWaiters.h"

#include <gtest/gtest.h>

namespace tulo::test {
namespace {

class RoomWaitersTest : public ::testing::Test {
 protected:
  RoomWaiters::Clock::time_point now{std::chrono::hours(1)};
  RoomWaiters waiters{[this] { return now; }};
  const DownloadPointer download = std::make_shared<Download>(NodeId(20));
};

TEST_F(RoomWaitersTest, WhoWaitsIsTriedAgainOnce) {
  EXPECT_TRUE(waiters.add(download, false));
  EXPECT_EQ(waiters.takeAll(), std::vector<DownloadPointer>{download});
  EXPECT_TRUE(waiters.takeAll().empty());
}

TEST_F(RoomWaitersTest, NobodyWaitsForEverForWhatDoesNotCome) {
  EXPECT_TRUE(waiters.add(download, false));
  now += RoomWaiters::kPatience - std::chrono::milliseconds(1);
  waiters.takeAll();
  EXPECT_TRUE(waiters.add(download, false));
  now += std::chrono::milliseconds(1);
  waiters.takeAll();
  EXPECT_FALSE(waiters.add(download, false));
  EXPECT_TRUE(waiters.takeAll().empty());
}

TEST_F(RoomWaitersTest, AsLongAsOthersAreOnTheirWayTheWaitDoesNotCount) {
  for (int i = 0; i < 3; ++i) {
    EXPECT_TRUE(waiters.add(download, true));
    waiters.takeAll();
    now += RoomWaiters::kPatience;
  }
  EXPECT_TRUE(waiters.add(download, true));
}

}  // namespace
}  // namespace tulo::test
