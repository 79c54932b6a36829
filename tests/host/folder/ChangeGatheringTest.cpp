#include "host/folder/ChangeGathering.h"

#include <gmock/gmock.h>

namespace tulo::host {
namespace {

using std::chrono::milliseconds;
using Change = ChangeGathering::Change;

// The times are those of a clock that the test moves.
class ChangeGatheringTest : public testing::Test {
 protected:
  void add(const std::string& name) {
    gathering_.notice(now_);
    gathering_.add({"F", name});
  }
  void pass(milliseconds time) { now_ += time; }
  auto take() { return gathering_.take(now_); }

  ChangeGathering gathering_;
  ChangeGathering::Clock::time_point now_{std::chrono::hours(1)};
};

TEST_F(ChangeGatheringTest, WhereNothingHappenedThereIsNothingToTell) {
  EXPECT_FALSE(take());
  EXPECT_EQ(gathering_.waitTime(milliseconds(60'000)), milliseconds(60'000));
}

TEST_F(ChangeGatheringTest, ChangesAreToldTogetherWhenItIsQuiet) {
  add("a");
  pass(milliseconds(30));
  add("b");
  pass(milliseconds(30));
  EXPECT_FALSE(take()) << "something happened just now";
  EXPECT_LE(gathering_.waitTime(milliseconds(60'000)), milliseconds(40));
  pass(milliseconds(30));
  const auto batch = take();
  ASSERT_TRUE(batch);
  EXPECT_THAT(batch->changes, testing::ElementsAre(Change("F", "a"), Change("F", "b")));
  EXPECT_FALSE(batch->lost);
  EXPECT_FALSE(take());
}

TEST_F(ChangeGatheringTest, WhereItIsNeverQuietTheyAreToldAllTheSame) {
  for (int i = 0; i < 14; ++i) {
    add("a");
    EXPECT_FALSE(take());
    pass(milliseconds(30));
  }
  EXPECT_TRUE(take());
}

TEST_F(ChangeGatheringTest, TheHalvesOfAMoveAreToldTogether) {
  add("from");
  pass(milliseconds(410));
  gathering_.beginMove(7, now_);
  EXPECT_FALSE(take()) << "the other half may be on its way";
  gathering_.endMove(7);
  EXPECT_TRUE(take());
}

TEST_F(ChangeGatheringTest, AMoveOutOfSightEnds) {
  add("from");
  gathering_.beginMove(7, now_);
  gathering_.endMove(8);
  pass(milliseconds(50));
  EXPECT_TRUE(take());
}

TEST_F(ChangeGatheringTest, AFileThatIsBeingWrittenIsToldOfNowAndThen) {
  gathering_.notice(now_);
  gathering_.addWritten({"F", "a"}, now_);
  pass(milliseconds(500));
  EXPECT_FALSE(take());
  gathering_.addWritten({"F", "a"}, now_);
  pass(milliseconds(500));
  ASSERT_TRUE(take());
  pass(milliseconds(5000));
  EXPECT_FALSE(take()) << "told once for all that was written";
}

TEST_F(ChangeGatheringTest, AFileThatWasClosedMeanwhileIsNotToldOfTwice) {
  gathering_.addWritten({"F", "a"}, now_);
  add("a");
  pass(milliseconds(50));
  ASSERT_TRUE(take());
  pass(milliseconds(5000));
  EXPECT_FALSE(take());
}

TEST_F(ChangeGatheringTest, LostChangesAreSaidToBe) {
  gathering_.lose();
  const auto batch = take();
  ASSERT_TRUE(batch);
  EXPECT_TRUE(batch->lost);
  EXPECT_FALSE(take());
}

}  // namespace
}  // namespace tulo::host
