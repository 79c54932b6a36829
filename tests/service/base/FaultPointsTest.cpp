#include "service/base/FaultPoints.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <cstdlib>
#include <string>
#include <string_view>

namespace tulo::test {
namespace {

// In a process of its own, since the variable is read once.
[[noreturn]] void reach(const char* armed, int times) {
  ::setenv("TULO_FAULT_POINT", armed, 1);
  for (int i = 0; i < times; ++i) {
    faultPoint("elsewhere");
    faultPoint("here");
  }
  std::_Exit(0);
}

class FaultPointsDeathTest : public ::testing::Test {
 protected:
  FaultPointsDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST_F(FaultPointsDeathTest, KillsWhereItIsArmed) {
  EXPECT_EXIT(reach("here", 1), ::testing::KilledBySignal(SIGKILL), "");
}

TEST_F(FaultPointsDeathTest, KillsTheTimeThatIsSaidAndNotBefore) {
  EXPECT_EXIT(reach("here:3", 2), ::testing::ExitedWithCode(0), "");
  EXPECT_EXIT(reach("here:3", 3), ::testing::KilledBySignal(SIGKILL), "");
}

TEST_F(FaultPointsDeathTest, ANumberThatIsNoneMeansTheFirstTime) {
  EXPECT_EXIT(reach("here:x", 1), ::testing::KilledBySignal(SIGKILL), "");
}

TEST_F(FaultPointsDeathTest, LeavesEverythingElseAlone) {
  EXPECT_EXIT(reach("there", 3), ::testing::ExitedWithCode(0), "");
  EXPECT_EXIT(reach("", 3), ::testing::ExitedWithCode(0), "");
}

TEST(FaultPointsTest, AHookIsCalledUntilItIsTakenBack) {
  std::string reached;
  setFaultHook([&](std::string_view point) { reached += point; });
  faultPoint("one");
  faultPoint("two");
  setFaultHook(nullptr);
  faultPoint("three");
  EXPECT_EQ(reached, "onetwo");
}

}  // namespace
}  // namespace tulo::test
