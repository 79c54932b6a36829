#include <sqlite3.h>

#include <atomic>
#include <filesystem>
#include <limits>
#include <thread>

#include "tests/index/IndexFixture.h"
#include "tests/support/Descriptors.h"
#include "tests/support/Gate.h"

namespace tulo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class IndexTest : public IndexFixture {};

TEST_F(IndexTest, ListsFoldersThenFilesEachByName) {
  builder()
      .file({.ulid = "1", .name = "b.txt"})
      .file({.ulid = "2", .name = "a.txt"})
      .folder("3", "z")
      .folder("4", "y");
  EXPECT_THAT(displayNames(open()->childrenOfFolder(std::nullopt)),
              ElementsAre("y", "z", "a.txt", "b.txt"));
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(IndexTest, ListsOnlyTheRowsDirectlyInTheFolder) {
  builder()
      .folder("F", "outer")
      .folder("G", "inner", "F")
      .folder("H", "deep", "G")
      .file({.ulid = "1", .name = "top"})
      .file({.ulid = "2", .name = "in F", .folder = "F"})
      .file({.ulid = "3", .name = "in G", .folder = "G"});
  const auto index = open();
  EXPECT_THAT(displayNames(index->childrenOfFolder(std::nullopt)), ElementsAre("outer", "top"));
  EXPECT_THAT(displayNames(index->childrenOfFolder("F")), ElementsAre("inner", "in F"));
  EXPECT_THAT(displayNames(index->childrenOfFolder("H")), IsEmpty());
  EXPECT_THAT(displayNames(index->childrenOfFolder("nobody")), IsEmpty());
}

TEST_F(IndexTest, AnEmptyParentIsNotTheTopLevel) {
  builder()
      .folder("F", "top")
      .folder("G", "in the nameless folder", "")
      .file({.ulid = "1", .name = "file in the nameless folder", .folder = ""});
  const auto index = open();
  EXPECT_THAT(displayNames(index->childrenOfFolder(std::nullopt)), ElementsAre("top"));
  EXPECT_THAT(displayNames(index->childrenOfFolder("")),
              ElementsAre("in the nameless folder", "file in the nameless folder"));
}

TEST_F(IndexTest, SortsByBytesUnlessTheSchemaSaysOtherwise) {
  builder().folder("1", "a").folder("2", "B").folder("3", "\u00e4").folder("4", "C");
  EXPECT_THAT(displayNames(open()->childrenOfFolder(std::nullopt)),
              ElementsAre("B", "C", "a", "\u00e4"));
}

TEST_F(IndexTest, SortsByTheColumnsCollation) {
  builder()
      .execute("DROP TABLE folders")
      .execute("CREATE TABLE folders (ulid TEXT, name TEXT COLLATE NOCASE, parent_ulid TEXT)")
      .folder("1", "a")
      .folder("2", "B")
      .folder("3", "c");
  EXPECT_THAT(displayNames(open()->childrenOfFolder(std::nullopt)), ElementsAre("a", "B", "c"));
}

TEST_F(IndexTest, ReadsEveryColumn) {
  builder()
      .folder("F", "Docs", "P")
      .file({"U", "a.txt", "P", 1234, 1'700'000'000, 17, 42})
      .file({"V", "b.txt", "P", -1, -2, -3, std::nullopt});
  EXPECT_THAT(
      described(open()->childrenOfFolder("P")),
      ElementsAre("folder F 'Docs' in 'P' size 0 at 0 version 0 shown as 'Docs'",
                  "file U 'a.txt' in 'P' size 1234 at 1700000000 version 17 locked by 42 shown as "
                  "'a.txt'",
                  "file V 'b.txt' in 'P' size -1 at -2 version -3 shown as 'b.txt'"));
}

TEST_F(IndexTest, ReadsTheWholeRangeOfIntegers) {
  constexpr auto least = std::numeric_limits<std::int64_t>::min();
  constexpr auto most = std::numeric_limits<std::int64_t>::max();
  builder().file({"U", "a", std::nullopt, most, 0, least, least});
  const auto entry = open()->entryForFile("U");
  ASSERT_TRUE(entry);
  EXPECT_EQ(entry->size, most);
  EXPECT_EQ(entry->versionNumber, least);
  EXPECT_EQ(entry->lockedByUserId, least);
}

TEST_F(IndexTest, AFolderHasNoFileFieldsWhateverElseIsStored) {
  builder()
      .execute("ALTER TABLE folders ADD COLUMN size")
      .execute("ALTER TABLE folders ADD COLUMN mtime_unix")
      .execute("ALTER TABLE folders ADD COLUMN version_number")
      .execute("ALTER TABLE folders ADD COLUMN locked_by_user_id")
      .execute("INSERT INTO folders VALUES ('F', 'Docs', NULL, 5, 6, 7, 8)");
  const std::string expected = "folder F 'Docs' at the top size 0 at 0 version 0 shown as 'Docs'";
  EXPECT_THAT(described(open()->childrenOfFolder(std::nullopt)), ElementsAre(expected));
  EXPECT_EQ(described(open()->entryForFolder("F").value()), expected);
}

TEST_F(IndexTest, ALockHolderOfZeroIsALockHolder) {
  builder().file({.ulid = "U", .name = "a", .lockedBy = 0});
  EXPECT_EQ(open()->entryForFile("U").value().lockedByUserId, 0);
}

TEST_F(IndexTest, NullsReadAsEmptyZeroOrAbsent) {
  builder()
      .fileOf({nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr})
      .folderOf({nullptr, nullptr, nullptr});
  EXPECT_THAT(described(open()->childrenOfFolder(std::nullopt)),
              ElementsAre("folder  '' at the top size 0 at 0 version 0 shown as ''",
                          // The folder without a name reserves the empty one.
                          "file  '' at the top size 0 at 0 version 0 shown as ' ()'"));
}

TEST_F(IndexTest, AModificationTimeOfNullIsTheEpoch) {
  builder().fileOf({"U", "a", nullptr, nullptr, nullptr, nullptr, nullptr});
  EXPECT_EQ(open()->entryForFile("U").value().modified, platform::Date());
}

TEST_F(IndexTest, ValuesOfOtherTypesAreConvertedAsSqliteDoes) {
  builder()
      .fileOf({std::int64_t{12}, std::int64_t{34}, std::int64_t{56}, "78abc", 9.9, "none", "x"})
      .fileOf({1.5, Blob{"blob"}, Blob{"56"}, Blob{"7"}, 1e30, -1e30, 0.9});
  EXPECT_THAT(described(open()->childrenOfFolder("56")), IsEmpty());
  const auto index = open();
  EXPECT_EQ(described(index->entryForFile("12").value_or(IndexEntry{})),
            described(IndexEntry{}));  // an integer is not equal to a text
  builder()
      .execute("DROP TABLE items")
      .execute(
          "CREATE TABLE items (ulid TEXT, name, folder_ulid TEXT, size, mtime_unix,"
          " version_number, locked_by_user_id)")
      .fileOf({std::int64_t{12}, std::int64_t{34}, std::int64_t{56}, "78abc", 9.9, "none", "x"})
      .fileOf({1.5, Blob{"blob"}, std::int64_t{56}, Blob{"7"}, "5 ", -1e30, 0.9});
  EXPECT_THAT(
      described(open()->childrenOfFolder("56")),
      ElementsAre("file 12 '34' in '56' size 78 at 9 version 0 locked by 0 shown as '34'",
                  "file 1.5 'blob' in '56' size 7 at 5 version -9223372036854775808 locked by 0 "
                  "shown as 'blob'"));
}

TEST_F(IndexTest, TextThatIsNotUtf8IsCarriedAsBytes) {
  builder().file({.ulid = "\xfe", .name = "a\xff.txt"});
  const auto entry = open()->entryForFile("\xfe");
  ASSERT_TRUE(entry);
  EXPECT_EQ(entry->name, "a\xff.txt");
  EXPECT_EQ(entry->displayName, "a\xff.txt");
}

TEST_F(IndexTest, FilesYieldToAFolderAndToOneAnother) {
  builder()
      .folder("F", "Docs")
      .file({.ulid = "01AAAAAA", .name = "docs"})
      .file({.ulid = "01BBBBBB", .name = "Docs"})
      .file({.ulid = "01CCCCCC", .name = "a.txt"})
      .file({.ulid = "01DDDDDD", .name = "A.txt"});
  EXPECT_THAT(displayNames(open()->childrenOfFolder(std::nullopt)),
              ElementsAre("Docs", "A (DDDDDD).txt", "Docs (BBBBBB)", "a.txt", "docs (AAAAAA)"));
}

TEST_F(IndexTest, MarkingLeavesTheStoredNameAlone) {
  builder().folder("F", "Docs").file({.ulid = "01AAAAAA", .name = "docs"});
  const auto children = open()->childrenOfFolder(std::nullopt);
  ASSERT_EQ(children.size(), 2U);
  EXPECT_EQ(children[1].name, "docs");
}

TEST_F(IndexTest, FoldersAreNeverMarked) {
  builder().folder("F", "Docs").folder("G", "Docs").folder("H", "docs");
  const auto index = open();
  EXPECT_THAT(displayNames(index->childrenOfFolder(std::nullopt)),
              ElementsAre("Docs", "Docs", "docs"));
  EXPECT_EQ(index->entryForFolder("G").value().displayName, "Docs");
}

TEST_F(IndexTest, NamesInDifferentFoldersDoNotClash) {
  builder()
      .file({.ulid = "1", .name = "a"})
      .file({.ulid = "2", .name = "a", .folder = "F"})
      .folder("F", "other")
      .folder("G", "A", "F2");
  EXPECT_EQ(open()->entryForFile("2").value().displayName, "a");
}

TEST_F(IndexTest, OneFolderIsFoundUnderItsPlainName) {
  builder().folder("F", "Docs").folder("G", "inner", "F");
  const auto index = open();
  EXPECT_EQ(described(index->entryForFolder("G").value()),
            "folder G 'inner' in 'F' size 0 at 0 version 0 shown as 'inner'");
  EXPECT_EQ(described(index->entryForFolder("F").value()),
            "folder F 'Docs' at the top size 0 at 0 version 0 shown as 'Docs'");
}

TEST_F(IndexTest, OneFileIsFoundUnderItsPlainNameWhereNothingClashes) {
  builder().file({"U", "a.txt", "F", 5, 6, 7, 8}).file({.ulid = "V", .name = "b", .folder = "F"});
  EXPECT_EQ(described(open()->entryForFile("U").value()),
            "file U 'a.txt' in 'F' size 5 at 6 version 7 locked by 8 shown as 'a.txt'");
}

TEST_F(IndexTest, ALookupGivesEveryFileTheNameOfTheListing) {
  auto index = builder();
  const std::vector<std::optional<std::string>> parents = {std::nullopt, "F", ""};
  int number = 0;
  for (const auto& parent : parents) {
    index.folder("folder" + std::to_string(number), "Clash.txt", parent);
    for (const char* name : {"a.txt", "A.txt", "a.TXT", "clash.txt", "b", ".b", "\u00c4", "a\u0308",
                             "A\u0308", "single"})
      index.file({.ulid = ulidOf(++number), .name = name, .folder = parent});
  }
  const auto opened = open();
  for (const auto& parent : parents) {
    for (const IndexEntry& child : opened->childrenOfFolder(parent)) {
      if (child.isFolder) continue;
      EXPECT_EQ(described(opened->entryForFile(child.ulid).value()), described(child));
    }
  }
}

TEST_F(IndexTest, TheFirstOfSeveralRowsOfOneUlidCounts) {
  builder()
      .execute("DROP INDEX items_ulid")
      .file({.ulid = "U", .name = "b"})
      .file({.ulid = "U", .name = "a"});
  // The row is the first stored, but its name is that of the first sibling with the ULID.
  const auto entry = open()->entryForFile("U").value();
  EXPECT_EQ(entry.name, "b");
  EXPECT_EQ(entry.displayName, "a");
}

TEST_F(IndexTest, UnknownUlidsGiveNothing) {
  builder().folder("F", "Docs").file({.ulid = "U", .name = "a"});
  const auto index = open();
  EXPECT_FALSE(index->entryForFolder("X"));
  EXPECT_FALSE(index->entryForFile("X"));
  EXPECT_FALSE(index->entryForFolder(""));
  EXPECT_FALSE(index->entryForFile(""));
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(IndexTest, EachTableIsSearchedOnItsOwn) {
  builder().folder("F", "Docs").file({.ulid = "U", .name = "a"});
  const auto index = open();
  EXPECT_FALSE(index->entryForFolder("U"));
  EXPECT_FALSE(index->entryForFile("F"));
}

TEST_F(IndexTest, AnEmptyUlidIsFoundWhereOneIsStored) {
  builder().folder("", "Nameless").file({.ulid = "", .name = "a"});
  const auto index = open();
  EXPECT_EQ(index->entryForFolder("").value().name, "Nameless");
  EXPECT_EQ(index->entryForFile("").value().name, "a");
}

TEST_F(IndexTest, UlidsAreBoundAndNeverReadAsSql) {
  builder().file({.ulid = "U", .name = "a"});
  EXPECT_FALSE(open()->entryForFile("' OR '1'='1"));
  EXPECT_THAT(open()->childrenOfFolder("x' OR folder_ulid IS NULL --"), IsEmpty());
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(IndexTest, AUlidEndsAtItsFirstNul) {
  builder().folder("F", "Docs");
  EXPECT_TRUE(open()->entryForFolder(std::string("F\0G", 3)));
}

TEST_F(IndexTest, AFileWhoseStoredUlidDiffersFromTheOneAskedForKeepsItsPlainName) {
  builder()
      .execute("DROP TABLE items")
      .execute(
          "CREATE TABLE items (ulid TEXT COLLATE NOCASE, name, folder_ulid, size, mtime_unix,"
          " version_number, locked_by_user_id)")
      .folder("F", "Docs")
      .file({.ulid = "01AAAAAA", .name = "docs"});
  const auto index = open();
  EXPECT_EQ(index->entryForFile("01AAAAAA").value().displayName, "docs (AAAAAA)");
  EXPECT_EQ(index->entryForFile("01aaaaaa").value().displayName, "docs");
}

TEST_F(IndexTest, TheDataVersionStaysWhileNobodyWrites) {
  builder().folder("F", "Docs");
  const auto index = open();
  const auto version = index->dataVersion();
  EXPECT_NE(version, 0);
  EXPECT_EQ(index->dataVersion(), version);
  EXPECT_EQ(open()->dataVersion(), version);
}

TEST_F(IndexTest, TheDataVersionOfOneConnectionChangesWhenAnotherCommits) {
  auto writer = builder();
  const auto index = open();
  const auto version = index->dataVersion();
  writer.folder("F", "Docs");
  EXPECT_NE(index->dataVersion(), version);
}

TEST_F(IndexTest, ReadingChangesNothingInTheContainer) {
  builder().folder("F", "Docs").file({.ulid = "U", .name = "a"});
  const std::string before = readFile(path());
  {
    const auto index = open();
    index->childrenOfFolder(std::nullopt);
    index->entryForFile("U");
    index->dataVersion();
  }
  EXPECT_EQ(readFile(path()), before);
  const auto files = std::filesystem::directory_iterator(container_.path());
  EXPECT_EQ(std::distance(begin(files), end(files)), 1);
}

TEST_F(IndexTest, SeesTheLastCommitWhileAWriterWrites) {
  auto writer = builder();
  writer.execute("PRAGMA journal_mode = WAL").folder("F", "before");
  writer.execute("BEGIN IMMEDIATE").folder("G", "uncommitted");
  const auto index = open();
  EXPECT_THAT(displayNames(index->childrenOfFolder(std::nullopt)), ElementsAre("before"));
  writer.execute("COMMIT");
  EXPECT_THAT(displayNames(index->childrenOfFolder(std::nullopt)),
              ElementsAre("before", "uncommitted"));
}

TEST_F(IndexTest, ClosesWhatItOpened) {
  builder().folder("F", "Docs").file({.ulid = "U", .name = "a"});
  const auto before = openDescriptors();
  for (int i = 0; i < 5; ++i) {
    const auto index = open();
    index->childrenOfFolder(std::nullopt);
    index->entryForFile("U");
    index->dataVersion();
    EXPECT_GT(openDescriptors(), before);
  }
  EXPECT_EQ(openDescriptors(), before);
}

TEST_F(IndexTest, GoesOnReadingAFileThatWasReplaced) {
  builder().folder("F", "old");
  const auto index = open();
  index->dataVersion();
  std::filesystem::remove(path());
  builder().folder("F", "new");
  EXPECT_THAT(displayNames(index->childrenOfFolder(std::nullopt)), ElementsAre("old"));
  EXPECT_THAT(displayNames(open()->childrenOfFolder(std::nullopt)), ElementsAre("new"));
}

TEST_F(IndexTest, ServesManyThreadsBesideAWriter) {
  auto writer = builder();
  writer.execute("PRAGMA journal_mode = WAL");
  for (int i = 0; i < 20; ++i)
    writer.file({.ulid = ulidOf(i), .name = "name"});
  std::atomic<int> wrong = 0;
  std::vector<std::thread> readers;
  for (int i = 0; i < 8; ++i)
    readers.emplace_back([&] {
      for (int round = 0; round < 25; ++round) {
        const auto index = open();
        const auto entry = index ? index->entryForFile(ulidOf(19)) : std::nullopt;
        if (!entry || entry->displayName != "name (000019)") ++wrong;
        if (!index || index->childrenOfFolder(std::nullopt).size() < 20) ++wrong;
      }
    });
  for (int i = 20; i < 60; ++i)
    writer.file({.ulid = ulidOf(i), .name = "name"});
  for (std::thread& reader : readers)
    reader.join();
  EXPECT_EQ(wrong, 0);
  EXPECT_THAT(log_.lines(), IsEmpty());
}

}  // namespace
}  // namespace tulo::test
