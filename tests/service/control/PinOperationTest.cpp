#include <gtest/gtest.h>

#include "tests/service/control/ControlFixture.h"

namespace tulo::test {
namespace {

using PinOperationTest = ControlFixture;

TEST_F(PinOperationTest, APinComesAndGoes) {
  const NodeId id = downloaded("i:1", "a.txt", "base");
  EXPECT_TRUE(control::setPinned(parts(), files({id}), true).ok);
  EXPECT_TRUE(row(id)->pinned);
  EXPECT_TRUE(control::setPinned(parts(), files({id}), false).ok);
  EXPECT_FALSE(row(id)->pinned);
}

TEST_F(PinOperationTest, ANumberThatNobodyHasIsAFailureAndLeavesTheOthers) {
  const NodeId id = downloaded("i:1", "a.txt", "base");
  const control::Outcome outcome = control::setPinned(parts(), files({NodeId(98765), id}), true);
  EXPECT_FALSE(outcome.ok);
  ASSERT_EQ(outcome.failures->size(), 1U);
  EXPECT_EQ(std::get<NodeId>(outcome.failures->front().what), NodeId(98765));
  EXPECT_TRUE(row(id)->pinned);
}

TEST_F(PinOperationTest, TheHousekeepingIsToldAtOnce) {
  bool poked = false;
  ControlParts told = parts();
  told.poke = [&poked] { poked = true; };
  control::setPinned(told, files({}), true);
  EXPECT_TRUE(poked);
}

}  // namespace
}  // namespace tulo::test
