#include "service/Housekeeper.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <stdexcept>

#include "tests/support/Eventually.h"

namespace tulo::test {
namespace {

using Clock = std::chrono::steady_clock;

class HousekeeperTest : public ::testing::Test {
 protected:
  std::atomic<int> rounds = 0;
  std::atomic<int> synchronized = 0;
  std::atomic<bool> more = false;
  std::atomic<bool> fails = false;
  Housekeeper keeper{[this] {
                       ++rounds;
                       if (fails) throw std::runtime_error("broken");
                       return more.load();
                     },
                     [this] { ++synchronized; }};
};

TEST_F(HousekeeperTest, GoesOnWhileThereIsMoreToDo) {
  more = true;
  keeper.start();
  EXPECT_TRUE(eventually([&] { return rounds > 5; }));
  keeper.stop();
  const int made = rounds;
  std::this_thread::sleep_for(std::chrono::milliseconds(60));
  EXPECT_EQ(rounds, made);
}

TEST_F(HousekeeperTest, RestsForAboutASecondWhenThereIsNothingToDo) {
  keeper.start();
  EXPECT_TRUE(eventually([&] { return rounds == 1; }));
  const auto begin = Clock::now();
  EXPECT_TRUE(eventually([&] { return rounds == 2; }));
  EXPECT_GT(Clock::now() - begin, std::chrono::milliseconds(500));
}

TEST_F(HousekeeperTest, BeginsAtOnceWhenItIsPoked) {
  keeper.start();
  EXPECT_TRUE(eventually([&] { return rounds == 1; }));
  const auto begin = Clock::now();
  for (int wanted = 2; wanted < 12; ++wanted) {
    keeper.poke();
    EXPECT_TRUE(eventually([&] { return rounds >= wanted; }));
  }
  EXPECT_LT(Clock::now() - begin, std::chrono::seconds(8));
}

TEST_F(HousekeeperTest, SynchronizesAboutOnceASecondHoweverManyRoundsThereAre) {
  more = true;
  keeper.start();
  const auto begin = Clock::now();
  EXPECT_TRUE(eventually([&] { return synchronized == 1; }));
  EXPECT_GT(Clock::now() - begin, std::chrono::milliseconds(900));
  EXPECT_GT(rounds, 3);
}

TEST_F(HousekeeperTest, ARoundThatFailsIsNotTheLast) {
  fails = true;
  keeper.start();
  EXPECT_TRUE(eventually([&] { return rounds == 1; }));
  fails = false;
  keeper.poke();
  EXPECT_TRUE(eventually([&] { return rounds >= 2; }));
}

TEST_F(HousekeeperTest, MayBeStoppedWithoutHavingBegun) {
  keeper.stop();
  EXPECT_EQ(rounds, 0);
}

}  // namespace
}  // namespace tulo::test
