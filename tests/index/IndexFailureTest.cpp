#include <filesystem>

#include "tests/index/IndexFixture.h"
#include "tests/support/CaseName.h"
#include "tests/support/Descriptors.h"

namespace tulo::test {
namespace {

using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

class IndexFailureTest : public IndexFixture {
 protected:
  std::unique_ptr<Index> openNamed(std::string_view name) const {
    return Index::open(Index::appGroup(), name);
  }

  // An existing, sound index at the literal path of the name.
  void build(std::string_view name, std::string_view folder) const {
    IndexBuilder(container_.file("temporary")).folder("F", folder);
    std::filesystem::rename(container_.file("temporary"), container_.file(name));
  }
};

TEST_F(IndexFailureTest, NoContainerIsAnErrorThatNamesTheGroup) {
  container_.vanish();
  EXPECT_FALSE(open());
  EXPECT_THAT(log_.lines(),
              ElementsAre(indexError("app group " + Index::appGroup() + " did not resolve")));
}

TEST_F(IndexFailureTest, NoContainerNamesTheGroupThatWasAskedFor) {
  container_.vanish();
  EXPECT_FALSE(Index::open("another.group", "state.db"));
  EXPECT_THAT(log_.lines(), ElementsAre(indexError("app group another.group did not resolve")));
}

TEST_F(IndexFailureTest, AFileInPlaceOfTheContainerIsNoContainer) {
  container_.vanish();
  writeFile(container_.path(), "");
  EXPECT_FALSE(open());
  EXPECT_THAT(log_.lines(),
              ElementsAre(indexError("app group " + Index::appGroup() + " did not resolve")));
}

TEST_F(IndexFailureTest, AMissingFileIsToldAsInformationAndNotCreated) {
  EXPECT_FALSE(open());
  EXPECT_THAT(log_.lines(), ElementsAre(indexInfo("no index at " + path() + " yet")));
  EXPECT_TRUE(std::filesystem::is_empty(container_.path()));
}

TEST_F(IndexFailureTest, EveryOpenOfAMissingFileIsTold) {
  EXPECT_FALSE(open());
  EXPECT_FALSE(openNamed("state-42.db"));
  EXPECT_THAT(log_.lines(),
              ElementsAre(indexInfo("no index at " + path() + " yet"),
                          indexInfo("no index at " + container_.file("state-42.db") + " yet")));
}

TEST_F(IndexFailureTest, ADanglingLinkIsAMissingFile) {
  std::filesystem::create_symlink(container_.file("nowhere"), path());
  EXPECT_FALSE(open());
  EXPECT_THAT(log_.lines(), ElementsAre(indexInfo("no index at " + path() + " yet")));
}

TEST_F(IndexFailureTest, TheDatabaseNameDefaultsToThePrimaryOne) {
  builder().folder("F", "Docs");
  EXPECT_TRUE(Index::open());
}

TEST_F(IndexFailureTest, AQuestionMarkEndsThePathThatIsOpened) {
  build("state-a?b.db", "behind the question mark");
  EXPECT_FALSE(openNamed("state-a?b.db"));
  EXPECT_THAT(log_.lines(),
              ElementsAre(indexError("opening index failed: unable to open database file")));
  build("state-a", "before the question mark");
  EXPECT_THAT(displayNames(openNamed("state-a?b.db")->childrenOfFolder(std::nullopt)),
              ElementsAre("before the question mark"));
}

TEST_F(IndexFailureTest, ANumberSignEndsThePathThatIsOpened) {
  build("state-a#b.db", "behind the number sign");
  EXPECT_FALSE(openNamed("state-a#b.db"));
  EXPECT_THAT(log_.lines(),
              ElementsAre(indexError("opening index failed: unable to open database file")));
  build("state-a", "before the number sign");
  EXPECT_THAT(displayNames(openNamed("state-a#b.db")->childrenOfFolder(std::nullopt)),
              ElementsAre("before the number sign"));
}

TEST_F(IndexFailureTest, APercentSignIsDecoded) {
  build("state-%41.db", "literal");
  build("state-A.db", "decoded");
  EXPECT_THAT(displayNames(openNamed("state-%41.db")->childrenOfFolder(std::nullopt)),
              ElementsAre("decoded"));
}

TEST_F(IndexFailureTest, TheExistenceCheckTakesThePathLiterally) {
  build("state-a", "before the question mark");
  EXPECT_FALSE(openNamed("state-a?b.db"));
  EXPECT_THAT(log_.lines(),
              ElementsAre(indexInfo("no index at " + container_.file("state-a?b.db") + " yet")));
}

TEST_F(IndexFailureTest, AnAccountCannotAskForMoreThanReading) {
  build("state-a?mode=rwc&b.db", "any");
  EXPECT_FALSE(openNamed("state-a?mode=rwc&b.db"));
  EXPECT_THAT(log_.lines(),
              ElementsAre(indexError("opening index failed: access mode not allowed: rwc")));
  EXPECT_FALSE(std::filesystem::exists(container_.file("state-a")));
}

TEST_F(IndexFailureTest, AFailedOpenReleasesEverything) {
  build("state-a?vfs=none.db", "any");
  const auto before = openDescriptors();
  for (int i = 0; i < 3; ++i)
    EXPECT_FALSE(openNamed("state-a?vfs=none.db"));
  EXPECT_EQ(openDescriptors(), before);
  EXPECT_THAT(
      log_.lines(),
      Each(AllOf(Field(&LogLine::level, "error"),
                 Field(&LogLine::message, StartsWith("opening index failed: no such vfs")))));
}

struct BrokenQuery {
  const char* title;
  // Makes the file at the path.
  void (*make)(const std::string& path);
  std::string message;
};

class BrokenIndexTest : public IndexFailureTest, public testing::WithParamInterface<BrokenQuery> {};

TEST_P(BrokenIndexTest, OpensAndSaysThatStatementsCannotBePrepared) {
  GetParam().make(path());
  const auto index = open();
  ASSERT_TRUE(index);
  const LogLine line = indexError("prepare failed: " + GetParam().message);
  EXPECT_FALSE(index->entryForFolder("F"));
  EXPECT_THAT(log_.lines(), ElementsAre(line));
  EXPECT_FALSE(index->entryForFile("F"));
  EXPECT_THAT(log_.lines().size(), 2U);
  EXPECT_THAT(index->childrenOfFolder(std::nullopt), IsEmpty());
  EXPECT_THAT(index->childrenOfFolder("F"), IsEmpty());
  EXPECT_THAT(log_.lines().size(), 6U);
}

INSTANTIATE_TEST_SUITE_P(
    Files, BrokenIndexTest,
    testing::ValuesIn<BrokenQuery>({
        {"Garbage", [](const std::string& path) { writeFile(path, std::string(4096, 'x')); },
         "file is not a database"},
        {"Empty", [](const std::string& path) { writeFile(path, ""); }, "no such table: folders"},
    }),
    CaseName());

TEST_F(IndexFailureTest, AMissingTableLeavesTheOtherOne) {
  builder().folder("F", "Docs").execute("DROP TABLE items");
  const auto index = open();
  EXPECT_THAT(displayNames(index->childrenOfFolder(std::nullopt)), ElementsAre("Docs"));
  EXPECT_THAT(log_.lines(), ElementsAre(indexError("prepare failed: no such table: items")));
  log_.clear();
  EXPECT_TRUE(index->entryForFolder("F"));
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(IndexFailureTest, WithoutFoldersAFileIsFoundAndTheReasonIsTold) {
  builder().file({.ulid = "U", .name = "a"}).execute("DROP TABLE folders");
  const auto index = open();
  EXPECT_EQ(index->entryForFile("U").value().displayName, "a");
  EXPECT_THAT(log_.lines(), ElementsAre(indexError("prepare failed: no such table: folders")));
  EXPECT_THAT(displayNames(index->childrenOfFolder(std::nullopt)), ElementsAre("a"));
}

TEST_F(IndexFailureTest, AMissingColumnIsTold) {
  builder().execute("DROP TABLE items").execute("CREATE TABLE items (ulid, name, folder_ulid)");
  EXPECT_FALSE(open()->entryForFile("U"));
  EXPECT_THAT(log_.lines(), ElementsAre(indexError("prepare failed: no such column: size")));
}

TEST_F(IndexFailureTest, TheDataVersionOfGarbageIsZeroAndTellsNothing) {
  writeFile(path(), std::string(4096, 'x'));
  EXPECT_EQ(open()->dataVersion(), 0);
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(IndexFailureTest, ADirectoryInPlaceOfTheFileGivesNothing) {
  std::filesystem::create_directory(path());
  const auto index = open();
  if (index) {
    EXPECT_THAT(index->childrenOfFolder(std::nullopt), IsEmpty());
  }
  EXPECT_THAT(log_.lines(), Not(IsEmpty()));
  EXPECT_THAT(log_.lines(), Each(Field(&LogLine::level, "error")));
}

TEST_F(IndexFailureTest, AnIndexThatStaysLockedGivesNothingAfterItsTimeout) {
  auto writer = builder();
  writer.folder("F", "Docs").execute("BEGIN EXCLUSIVE");
  const auto index = open();
  ASSERT_TRUE(index);
  EXPECT_FALSE(index->entryForFolder("F"));
  EXPECT_THAT(log_.lines(), ElementsAre(indexError("prepare failed: database is locked")));
}

TEST_F(IndexFailureTest, ALockedIndexHasTheDataVersionZeroAndTellsNothing) {
  auto writer = builder();
  writer.folder("F", "Docs").execute("BEGIN EXCLUSIVE");
  EXPECT_EQ(open()->dataVersion(), 0);
  EXPECT_THAT(log_.lines(), IsEmpty());
}

// Damages one page after the other of a larger index. Whatever that does to a listing, the rows
// that it gives are the first ones, and somewhere it ends in the middle without a word.
TEST_F(IndexFailureTest, ADamagedPageEndsTheRowsSilentlyAndKeepsThoseReadBefore) {
  constexpr std::size_t pageSize = 512;
  constexpr int count = 200;
  {
    auto index = IndexBuilder(container_.file("sound.db"));
    index.execute("PRAGMA page_size = 512").execute("VACUUM").execute("BEGIN");
    for (int i = 0; i < count; ++i)
      index.file({.ulid = ulidOf(i), .name = ulidOf(i), .folder = "F"});
    index.execute("COMMIT");
  }
  const auto pages = std::filesystem::file_size(container_.file("sound.db")) / pageSize;
  bool endedInTheMiddle = false;
  for (std::size_t page = 1; page < pages; ++page) {
    std::filesystem::copy_file(container_.file("sound.db"), path(),
                               std::filesystem::copy_options::overwrite_existing);
    damage(path(), page * pageSize, std::string(pageSize, '\xff'));
    log_.clear();
    const auto children = open()->childrenOfFolder("F");
    for (std::size_t i = 0; i < children.size(); ++i)
      ASSERT_EQ(children[i].name, ulidOf(static_cast<std::int64_t>(i)));
    endedInTheMiddle =
        endedInTheMiddle || (!children.empty() && children.size() < count && log_.lines().empty());
  }
  EXPECT_TRUE(endedInTheMiddle);
}

}  // namespace
}  // namespace tulo::test
