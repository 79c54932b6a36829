#include "host/index/IndexState.h"

#include <gtest/gtest.h>

#include "tests/support/TemporaryDirectory.h"

namespace tulo::host {
namespace {

class IndexStateTest : public testing::Test {
 protected:
  const test::TemporaryDirectory directory_;
  IndexDatabase database_{directory_.file("state.db"), ""};
  IndexState state_{database_};
};

TEST_F(IndexStateTest, TheLastValueCounts) {
  EXPECT_FALSE(state_.value("key"));
  state_.set("key", "one");
  state_.set("key", "two");
  EXPECT_EQ(state_.value("key"), "two");
  state_.set("key", "");
  EXPECT_EQ(state_.value("key"), "");
}

TEST_F(IndexStateTest, SomebodyIsSignedInUntilItIsSaidOtherwise) {
  EXPECT_TRUE(state_.isSignedIn());
  state_.setSignedIn(false);
  EXPECT_FALSE(state_.isSignedIn());
  state_.setSignedIn(true);
  EXPECT_TRUE(state_.isSignedIn());
}

TEST_F(IndexStateTest, OutlivesTheConnectionOnceItIsCommitted) {
  state_.setSignedIn(false);
  database_.commit();
  state_.set("key", "lost");
  database_.rollback();
  IndexDatabase again(directory_.file("state.db"), "");
  EXPECT_FALSE(IndexState(again).isSignedIn());
  EXPECT_FALSE(IndexState(again).value("key"));
}

}  // namespace
}  // namespace tulo::host
