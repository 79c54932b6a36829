#include "service/upload/HostWork.h"

#include <gtest/gtest.h>

#include "tests/service/support/Times.h"

namespace tulo::test {
namespace {

class HostWorkTest : public ::testing::Test {
 protected:
  HostWorkTest() { change.request.made(kNoContent, {"root", "a.txt"}); }

  Prospect prospect() { return work.prospectOf(change, now); }

  HostActivity activity = HostActivity::idle;
  std::string host = "one";
  WallTime now = at(1'000'000);
  Change change{NodeId(20), 1, {}, {}};
  HostWork work{[this] { return activity; }, [this] { return host; }};
};

TEST_F(HostWorkTest, AnIdleHostHasNothingLeftToDo) {
  EXPECT_EQ(prospect(), Prospect::nothing);
}

TEST_F(HostWorkTest, ABusyOneMayTakeVeryLong) {
  activity = HostActivity::busy;
  EXPECT_EQ(prospect(), Prospect::something);
  now += std::chrono::minutes(90);
  EXPECT_EQ(prospect(), Prospect::something);
  now += std::chrono::minutes(90);
  EXPECT_EQ(prospect(), Prospect::nothing);
}

TEST_F(HostWorkTest, ARequestThatEndedIsNotWaitedFor) {
  activity = HostActivity::busy;
  change.request.ended();
  EXPECT_EQ(prospect(), Prospect::nothing);
}

TEST_F(HostWorkTest, OneThatCannotBeSeenIsWaitedForAsLongAsItRuns) {
  activity = HostActivity::unknown;
  EXPECT_EQ(prospect(), Prospect::something);
  now += std::chrono::minutes(9);
  EXPECT_EQ(prospect(), Prospect::something);
  host = "another";
  EXPECT_EQ(prospect(), Prospect::nothing);
}

TEST_F(HostWorkTest, OneThatCannotBeSeenIsNotWaitedForForEver) {
  activity = HostActivity::unknown;
  EXPECT_EQ(prospect(), Prospect::something);
  now += std::chrono::minutes(11);
  EXPECT_EQ(prospect(), Prospect::nothing);
}

TEST_F(HostWorkTest, WithoutAHostNothingIsFinal) {
  activity = HostActivity::absent;
  change.request.ended();
  EXPECT_EQ(prospect(), Prospect::hostAbsent);
}

TEST_F(HostWorkTest, TheLooksBecomeRarer) {
  activity = HostActivity::busy;
  EXPECT_EQ(prospect(), Prospect::something);
  milliseconds before = work.pause(change.node());
  for (int i = 0; i < 20; ++i) {
    const milliseconds next = work.pause(change.node());
    EXPECT_GE(next, before);
    EXPECT_LE(next, std::chrono::minutes(1));
    before = next;
  }
  work.forget(change.node());
  EXPECT_EQ(prospect(), Prospect::something);
  EXPECT_LT(work.pause(change.node()), before);
}

}  // namespace
}  // namespace tulo::test
