#include "service/upload/HostHealth.h"

#include <gtest/gtest.h>

#include "tests/service/support/Times.h"

namespace tulo::test {
namespace {

const WallTime kNow = at(1'800'000'000'000);
constexpr std::chrono::minutes kMinute{1};

class HostHealthTest : public ::testing::Test {
 protected:
  HostHealth::Failure fail(std::uint64_t node, Reaction reaction) {
    return health.failed(NodeId(node), reaction, kNow);
  }

  void failSeveral() {
    for (std::uint64_t node = 20; node < 23; ++node)
      fail(node, Reaction::retryUnreachable);
  }

  HostHealth health;
};

TEST_F(HostHealthTest, SeveralMayGoAsLongAsNothingFails) {
  EXPECT_EQ(health.room(kNow), HostHealth::kParallel);
  EXPECT_FALSE(health.reached());
}

TEST_F(HostHealthTest, OneItemThatFailsOverAndOverIsNotTheHost) {
  for (int i = 0; i < 10; ++i)
    EXPECT_FALSE(fail(20, Reaction::retryUnreachable).stopsAll);
  EXPECT_TRUE(health.isReachable());
  EXPECT_EQ(health.room(kNow), HostHealth::kParallel);
}

TEST_F(HostHealthTest, WhenNoneCanBeSentOneAtATimeFindsOutWhetherTheHostIsBack) {
  failSeveral();
  EXPECT_FALSE(health.isReachable());
  EXPECT_EQ(health.room(kNow), 0U);
  EXPECT_EQ(health.room(kNow + kMinute), 1U);
  EXPECT_TRUE(health.reached());
}

TEST_F(HostHealthTest, OneThatCouldBeSentStartsTheCountAnew) {
  fail(20, Reaction::retryUnreachable);
  fail(21, Reaction::retryUnreachable);
  health.reached();
  EXPECT_FALSE(fail(22, Reaction::retryUnreachable).stopsAll);
  EXPECT_TRUE(health.isReachable());
}

TEST_F(HostHealthTest, NobodySignedInKeepsEverythingBack) {
  EXPECT_TRUE(fail(20, Reaction::pause).stopsAll);
  EXPECT_TRUE(health.isPaused());
  EXPECT_EQ(health.room(kNow), 0U);
  EXPECT_EQ(health.room(kNow + kMinute), 1U);
  EXPECT_TRUE(health.reached());
}

TEST_F(HostHealthTest, LookingNowEndsThePauseButNotTheDoubt) {
  fail(20, Reaction::pause);
  health.lookNow(kNow);
  EXPECT_EQ(health.room(kNow), 1U);
  EXPECT_TRUE(health.isPaused());
}

TEST_F(HostHealthTest, AResetForgetsAllFailures) {
  failSeveral();
  fail(20, Reaction::pause);
  health.reset();
  EXPECT_EQ(health.room(kNow), HostHealth::kParallel);
  EXPECT_TRUE(health.isReachable());
  EXPECT_FALSE(health.isPaused());
  EXPECT_FALSE(health.reached());
}

TEST_F(HostHealthTest, OtherFailuresKeepNothingElseBack) {
  for (const Reaction reaction : {Reaction::retry, Reaction::retryShown, Reaction::lookAgain,
                                  Reaction::uncertain, Reaction::refuse}) {
    EXPECT_FALSE(fail(20, reaction).stopsAll);
  }
  EXPECT_EQ(health.room(kNow), HostHealth::kParallel);
}

}  // namespace
}  // namespace tulo::test
