#include "host/folder/Intents.h"

#include <gtest/gtest.h>

#include "tests/support/TemporaryDirectory.h"

namespace tulo::host {
namespace {

class IntentsTest : public testing::Test {
 protected:
  const test::TemporaryDirectory directory_;
  IndexDatabase database_{directory_.file("state.db"), Intents::tables};
  Intents intents_{database_};
  const Node node_{"u", "p", "a~2.txt", false, {7, DiskTime(std::chrono::seconds(1)), 5, {}}};
};

TEST_F(IntentsTest, AFileIsRecognisedByWhatItIs) {
  intents_.announce(node_, "a.txt");
  const auto intent = intents_.find(node_.fingerprint);
  ASSERT_TRUE(intent);
  EXPECT_EQ(intent->ulid, "u");
  EXPECT_EQ(intent->parent, "p");
  EXPECT_EQ(intent->diskName, "a~2.txt");
  EXPECT_EQ(intent->shownName, "a.txt");
}

TEST_F(IntentsTest, AnotherFileOfTheSameInodeIsNot) {
  intents_.announce(node_, "a.txt");
  Fingerprint other = node_.fingerprint;
  other.born += std::chrono::seconds(1);
  EXPECT_FALSE(intents_.find(other));
  other = node_.fingerprint;
  other.inode = 8;
  EXPECT_FALSE(intents_.find(other));
}

TEST_F(IntentsTest, TheLastWordCountsUntilAllAreForgotten) {
  intents_.announce(node_, "a.txt");
  intents_.announce(node_, "b.txt");
  EXPECT_EQ(intents_.find(node_.fingerprint)->shownName, "b.txt");
  intents_.forgetAll();
  EXPECT_FALSE(intents_.find(node_.fingerprint));
}

}  // namespace
}  // namespace tulo::host
