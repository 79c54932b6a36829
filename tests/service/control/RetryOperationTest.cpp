#include <gtest/gtest.h>

#include "tests/service/control/ControlFixture.h"

namespace tulo::test {
namespace {

using RetryOperationTest = ControlFixture;

TEST_F(RetryOperationTest, ItIsAboutWhatIsNamed) {
  const NodeId one = refused("a?");
  const NodeId other = refused("b?");
  EXPECT_EQ(counts().attention, 2);
  EXPECT_EQ(control::retry(parts(), nodes({one})).retried, 1);
  drain();
  EXPECT_FALSE(change(one));
  EXPECT_TRUE(row(one)->error.empty());
  EXPECT_TRUE(change(other)->standing.isRefused());
}

TEST_F(RetryOperationTest, WithoutANameItIsAboutAllThatWasRefused) {
  const NodeId one = refused("a?");
  const control::RetryReply reply = control::retry(parts(), everything());
  EXPECT_EQ(reply.retried, 1);
  EXPECT_FALSE(reply.outcome.failures) << "nothing was named that could be wrong";
  drain();
  EXPECT_FALSE(change(one));
}

TEST_F(RetryOperationTest, ANameThatStandsForNothingIsAFailure) {
  const control::RetryReply reply = control::retry(parts(), deleted("never.txt"));
  EXPECT_FALSE(reply.outcome.ok);
  EXPECT_EQ(reply.retried, 0);
}

}  // namespace
}  // namespace tulo::test
