#include "index/IndexEntry.h"

#include <gtest/gtest.h>

namespace tulo {
namespace {

IndexEntry entry() {
  return {"U", "name", "P", false, 5, platform::Date(std::chrono::seconds(7)), 3, 9, "shown"};
}

TEST(IndexEntryTest, WithDisplayNameChangesOnlyTheDisplayName) {
  const IndexEntry before = entry();
  const IndexEntry after = before.withDisplayName("other");
  EXPECT_EQ(after.displayName, "other");
  EXPECT_EQ(after.ulid, "U");
  EXPECT_EQ(after.name, "name");
  EXPECT_EQ(after.parentUlid, "P");
  EXPECT_FALSE(after.isFolder);
  EXPECT_EQ(after.size, 5);
  EXPECT_EQ(after.modified, platform::Date(std::chrono::seconds(7)));
  EXPECT_EQ(after.versionNumber, 3);
  EXPECT_EQ(after.lockedByUserId, 9);
}

TEST(IndexEntryTest, WithDisplayNameLeavesTheReceiverAlone) {
  const IndexEntry before = entry();
  before.withDisplayName("other");
  EXPECT_EQ(before.displayName, "shown");
}

TEST(IndexEntryTest, TheLastDisplayNameCounts) {
  const IndexEntry after = entry().withDisplayName("one").withDisplayName("two");
  EXPECT_EQ(after.displayName, "two");
  EXPECT_EQ(after.name, "name");
}

TEST(IndexEntryTest, TheDisplayNameMayBeSetInPlace) {
  IndexEntry changed = entry();
  changed.displayName = "set";
  EXPECT_EQ(changed.displayName, "set");
}

}  // namespace
}  // namespace tulo
