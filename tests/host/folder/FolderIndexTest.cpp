#include "host/folder/FolderIndex.h"

#include <gmock/gmock.h>

#include "tests/support/TemporaryDirectory.h"

namespace tulo::host {
namespace {

class FolderIndexTest : public testing::Test {
 protected:
  static Node folder(std::string ulid, std::string parent) {
    return {ulid, std::move(parent), ulid, true, {1, {}, 0, {}}};
  }
  static Node file(std::string ulid, std::string parent) {
    return {ulid,
            std::move(parent),
            ulid,
            false,
            {2, {}, 5, DiskTime(std::chrono::milliseconds(-9500))}};
  }

  const test::TemporaryDirectory directory_;
  FolderIndex index_{directory_.file("state.db")};
};

TEST_F(FolderIndexTest, EveryNodeHasARowOfItsKind) {
  index_.add(folder("d", ""), "Docs");
  index_.add(file("f", "d"), "a.txt");
  EXPECT_EQ(index_.rows().counts().folders, 1);
  EXPECT_EQ(index_.rows().counts().items, 1);
  EXPECT_EQ(index_.rows().nameOf("f"), "a.txt");
  EXPECT_EQ(index_.rows().file("f")->size, 5);
  EXPECT_TRUE(index_.nodes().child("d", "f"));
}

TEST_F(FolderIndexTest, TimesAreWholeSecondsBelow) {
  index_.add(file("f", ""), "a");
  index_.database().commit();
  EXPECT_EQ(sqlite::Connection(directory_.file("state.db"), sqlite::Connection::Mode::readOnly)
                .integer("SELECT mtime_unix FROM items"),
            -10);
}

TEST_F(FolderIndexTest, ANewPlaceIsRecordedOnBothSides) {
  index_.add(folder("d", ""), "Docs");
  index_.add(file("f", ""), "a");
  index_.place("f", "d", "on disk", "shown");
  EXPECT_TRUE(index_.nodes().child("d", "on disk"));
  EXPECT_EQ(index_.rows().nameOf("f"), "shown");
}

TEST_F(FolderIndexTest, OnlyFilesGetNewVersions) {
  index_.add(folder("d", ""), "d");
  index_.add(file("f", ""), "f");
  Node changed = file("f", "");
  changed.fingerprint.size = 6;
  index_.update(changed);
  EXPECT_EQ(index_.rows().file("f")->version, 2);
  EXPECT_EQ(index_.rows().file("f")->size, 6);
  Node moved = folder("d", "");
  moved.fingerprint.inode = 9;
  index_.update(moved);
  EXPECT_EQ(index_.nodes().node("d")->fingerprint.inode, 9U);
}

TEST_F(FolderIndexTest, ARemovedTreeLeavesNothing) {
  index_.add(folder("a", ""), "a");
  index_.add(folder("b", "a"), "b");
  index_.add(file("f", "b"), "f");
  index_.add(file("other", ""), "other");
  EXPECT_THAT(index_.remove("a"), testing::UnorderedElementsAre("a", "b"));
  for (const char* gone : {"a", "b", "f"}) {
    EXPECT_FALSE(index_.nodes().node(gone)) << gone;
    EXPECT_EQ(index_.rows().nameOf(gone), "") << gone;
  }
  EXPECT_TRUE(index_.nodes().node("other"));
}

}  // namespace
}  // namespace tulo::host
