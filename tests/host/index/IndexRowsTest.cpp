#include "host/index/IndexRows.h"

#include <gmock/gmock.h>

#include <string>

#include "tests/support/TemporaryDirectory.h"

namespace tulo::host {
namespace {

using std::chrono::seconds;
using testing::ElementsAre;
using testing::UnorderedElementsAre;

class IndexRowsTest : public testing::Test {
 protected:
  std::int64_t number(const std::string& sql) {
    database_.commit();
    return sqlite::Connection(path_, sqlite::Connection::Mode::readOnly).integer(sql);
  }
  void addFile(std::string_view ulid, std::string_view parent) {
    rows_.addFile(ulid, parent, ulid, {1, {}});
  }

  const test::TemporaryDirectory directory_;
  const std::string path_ = directory_.file("state.db");
  IndexDatabase database_{path_, ""};
  IndexRows rows_{database_};
};

TEST_F(IndexRowsTest, KeysAndNamesAreTextForTheirReaders) {
  rows_.addFolder("F", rootUlid, "Docs");
  rows_.addFile("I", "F", "caf\xE9", {5, std::chrono::sys_seconds(seconds(-10))});
  EXPECT_EQ(number("SELECT count(*) FROM folders WHERE parent_ulid IS NULL AND name = 'Docs'"), 1);
  EXPECT_EQ(number("SELECT count(*) FROM items WHERE ulid = 'I' AND folder_ulid = 'F' "
                   "AND typeof(name) = 'text' AND size = 5 AND mtime_unix = -10"),
            1);
  EXPECT_EQ(rows_.nameOf("F"), "Docs");
  EXPECT_EQ(rows_.nameOf("I"), "caf\xE9");
  EXPECT_EQ(rows_.nameOf("none"), "");
}

TEST_F(IndexRowsTest, OnlyNewContentsMakeANewVersion) {
  addFile("I", rootUlid);
  rows_.addFolder("F", rootUlid, "F");
  rows_.place("I", "F", "renamed");
  rows_.setLock("I", 0);
  EXPECT_EQ(rows_.file("I")->version, 1);
  rows_.setContents("I", {7, {}});
  EXPECT_EQ(rows_.file("I")->version, 2);
  EXPECT_EQ(rows_.file("I")->size, 7);
  EXPECT_FALSE(rows_.file("F")) << "folders have none";
}

TEST_F(IndexRowsTest, AnyUserHoldsALockAlsoNumberZero) {
  addFile("I", rootUlid);
  EXPECT_FALSE(rows_.file("I")->lockedBy);
  rows_.setLock("I", 0);
  EXPECT_EQ(rows_.file("I")->lockedBy, 0);
  rows_.setLock("I", std::nullopt);
  EXPECT_FALSE(rows_.file("I")->lockedBy);
}

TEST_F(IndexRowsTest, ALockIsSeenFromEveryFolderAboveIt) {
  rows_.addFolder("A", rootUlid, "a");
  rows_.addFolder("B", "A", "b");
  rows_.addFolder("C", rootUlid, "c");
  addFile("I", "B");
  EXPECT_FALSE(rows_.hasLockBelow("A"));
  rows_.setLock("I", 7);
  EXPECT_TRUE(rows_.hasLockBelow("A"));
  EXPECT_TRUE(rows_.hasLockBelow("B"));
  EXPECT_FALSE(rows_.hasLockBelow("C"));
}

TEST_F(IndexRowsTest, AFolderIsFoundByItsExactNameInItsPlace) {
  rows_.addFolder("A", rootUlid, "Docs");
  rows_.addFolder("B", "A", "Docs");
  addFile("Docs", rootUlid);
  EXPECT_EQ(rows_.folderNamed(rootUlid, "Docs"), "A");
  EXPECT_EQ(rows_.folderNamed("A", "Docs"), "B");
  EXPECT_FALSE(rows_.folderNamed(rootUlid, "docs"));
}

TEST_F(IndexRowsTest, AFolderGoesWithAllThatIsBelowIt) {
  rows_.addFolder("A", rootUlid, "a");
  rows_.addFolder("B", "A", "b");
  rows_.addFolder("C", rootUlid, "c");
  addFile("inA", "A");
  addFile("inB", "B");
  addFile("inC", "C");
  EXPECT_THAT(rows_.remove("A"), UnorderedElementsAre("A", "B"));
  EXPECT_EQ(number("SELECT count(*) FROM folders"), 1);
  EXPECT_EQ(number("SELECT count(*) FROM items"), 1);
  EXPECT_TRUE(rows_.file("inC"));
}

TEST_F(IndexRowsTest, AFileGoesAlone) {
  addFile("one", rootUlid);
  addFile("two", rootUlid);
  EXPECT_THAT(rows_.remove("one"), ElementsAre("one"));
  EXPECT_FALSE(rows_.file("one"));
  EXPECT_TRUE(rows_.file("two"));
}

TEST_F(IndexRowsTest, ACircleEndsNowhereElse) {
  rows_.addFolder("A", "B", "a");
  rows_.addFolder("B", "A", "b");
  EXPECT_FALSE(rows_.hasLockBelow("A"));
  EXPECT_THAT(rows_.remove("A"), UnorderedElementsAre("A", "B"));
}

TEST_F(IndexRowsTest, SumsAndCountsAreThoseOfAllRows) {
  EXPECT_EQ(rows_.totalSize(), 0);
  EXPECT_EQ(rows_.greatestUlid(), "");
  rows_.addFolder("03", rootUlid, "a");
  rows_.addFile("01", rootUlid, "x", {5, {}});
  EXPECT_EQ(rows_.greatestUlid(), "03");
  rows_.addFile("04", "03", "y", {6, {}});
  EXPECT_EQ(rows_.totalSize(), 11);
  EXPECT_EQ(rows_.greatestUlid(), "04");
  EXPECT_EQ(rows_.counts().folders, 1);
  EXPECT_EQ(rows_.counts().items, 2);
}

}  // namespace
}  // namespace tulo::host
