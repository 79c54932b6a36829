#include "service/listing/SweepPace.h"

#include <gtest/gtest.h>

namespace tulo::test {
namespace {

using namespace std::chrono_literals;

class SweepPaceTest : public ::testing::Test {
 protected:
  // So many commits, so far apart.
  void commits(int count, SweepPace::Milliseconds gap) {
    for (int i = 0; i < count; ++i) {
      pace.committed(now);
      now += gap;
    }
  }

  // Lists for so long; when the next listing is due after its end.
  SweepPace::Milliseconds list(SweepPace::Milliseconds cost) {
    const auto began = now;
    now += cost;
    pace.listed(began, now);
    return std::max(0ms, std::chrono::duration_cast<SweepPace::Milliseconds>(pace.due(now) - now));
  }

  SweepPace pace;
  SweepPace::Time now{1h};
};

TEST_F(SweepPaceTest, ACommitNowAndThenIsFollowedAtOnce) {
  for (int i = 0; i < 100; ++i) {
    // As many signs as one commit may give.
    commits(10, 1ms);
    EXPECT_FALSE(pace.isPouring(now));
    EXPECT_LE(pace.due(now), now);
    pace.beganRun(now);
    EXPECT_EQ(list(5ms), 0ms);
    now += 250ms;
  }
}

TEST_F(SweepPaceTest, ALongRunRestsAsLongAsItWorks) {
  commits(1, 0ms);
  pace.beganRun(now);
  EXPECT_EQ(list(200ms), 0ms);
  EXPECT_EQ(list(200ms), 200ms);
  EXPECT_EQ(list(10ms), 10ms);
}

TEST_F(SweepPaceTest, AFewCommitsInARowAreFollowedAtOnce) {
  commits(5, 60ms);
  pace.beganRun(now);
  EXPECT_FALSE(pace.isPouring(now));
  EXPECT_EQ(list(5ms), 0ms);
}

TEST_F(SweepPaceTest, WhileCommitsPourInOneFolderIsListedNowAndThen) {
  commits(200, 20ms);
  EXPECT_TRUE(pace.isPouring(now));
  pace.beganRun(now);
  EXPECT_EQ(list(10ms), SweepPace::kSparse - 10ms);
}

TEST_F(SweepPaceTest, ItCalmsDownSoonAfterTheLastCommitHoweverManyThereWere) {
  for (const int many : {1500, 10'000, 100'000}) {
    commits(many, 1ms);
    EXPECT_TRUE(pace.isPouring(now));
    now += SweepPace::kCalm;
    EXPECT_FALSE(pace.isPouring(now));
    now += 1h;
  }
}

}  // namespace
}  // namespace tulo::test
