// The index as its readers find it.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/time.h>

#include <filesystem>

#include "host/base/HostError.h"
#include "host/index/Ulid.h"
#include "tests/host/HostFixture.h"
#include "tests/support/CaseName.h"

namespace tulo::test {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;

class HostIndexTest : public HostTest {};

TEST_F(HostIndexTest, HasTheColumnsThatReadersUse) {
  startHost();
  const IndexReader index(inContainer("state.db"));
  EXPECT_THAT(index.column("SELECT name FROM pragma_table_info('folders')"),
              ElementsAre("ulid", "name", "parent_ulid"));
  EXPECT_THAT(index.column("SELECT name FROM pragma_table_info('items')"),
              ElementsAre("ulid", "name", "folder_ulid", "size", "mtime_unix", "version_number",
                          "locked_by_user_id"));
  EXPECT_THAT(index.column("PRAGMA journal_mode"), ElementsAre("wal"));
}

TEST_F(HostIndexTest, ListsFoldersAndFilesWithWhatIsKnownOfThem) {
  makeFolder("Docs/Old");
  makeFile("a.txt", "hello");
  makeFile("Docs/Old/empty", "");
  const timeval times[2] = {{100, 0}, {1'600'000'000, 999'999}};
  ASSERT_EQ(::utimes(inRoot("a.txt").c_str(), times), 0);
  startHost();
  EXPECT_THAT(paths(), ElementsAre("Docs/", "Docs/Old/", "Docs/Old/empty", "a.txt"));
  const IndexRow file = row("a.txt");
  EXPECT_FALSE(file.parent);
  EXPECT_EQ(file.size, 5);
  EXPECT_EQ(file.modified, 1'600'000'000);
  EXPECT_EQ(file.version, 1);
  EXPECT_FALSE(file.lockedBy);
  EXPECT_EQ(row("Docs/Old").parent, row("Docs").ulid);
  EXPECT_EQ(row("Docs/Old/empty").size, 0);
}

TEST_F(HostIndexTest, TimesBeforeTheEpochAreWholeSecondsBelow) {
  makeFile("old", "x");
  const timespec times[2] = {{0, UTIME_OMIT}, {-10, 500'000'000}};
  ASSERT_EQ(::utimensat(AT_FDCWD, inRoot("old").c_str(), times, 0), 0);
  startHost();
  EXPECT_EQ(row("old").modified, -10);
}

TEST_F(HostIndexTest, KeysAreUlids) {
  makeFolder("d");
  makeFile("d/f", "");
  startHost();
  EXPECT_TRUE(host::ulidBytes(row("d").ulid));
  EXPECT_TRUE(host::ulidBytes(row("d/f").ulid));
}

struct QueryCase {
  std::string title;
  std::string sql;
};

class HostIndexQueryTest : public HostTest, public testing::WithParamInterface<QueryCase> {};

TEST_P(HostIndexQueryTest, IsServedByAnIndexWithoutSorting) {
  startHost();
  const IndexReader index(inContainer("state.db"));
  sqlite3_stmt* raw = nullptr;
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open(inContainer("state.db").c_str(), &db), SQLITE_OK);
  const std::unique_ptr<sqlite3, int (*)(sqlite3*)> owner(db, sqlite3_close);
  const std::string sql = "EXPLAIN QUERY PLAN " + GetParam().sql;
  ASSERT_EQ(sqlite3_prepare_v2(db, sql.c_str(), -1, &raw, nullptr), SQLITE_OK);
  const std::unique_ptr<sqlite3_stmt, int (*)(sqlite3_stmt*)> statement(raw, sqlite3_finalize);
  std::string plan;
  while (sqlite3_step(raw) == SQLITE_ROW) {
    plan += reinterpret_cast<const char*>(sqlite3_column_text(raw, 3));
    plan += "; ";
  }
  EXPECT_THAT(plan, testing::StartsWith("SEARCH ")) << plan;
  EXPECT_THAT(plan, testing::HasSubstr("USING ")) << plan;
  EXPECT_THAT(plan, testing::Not(testing::HasSubstr("TEMP B-TREE"))) << plan;
}

constexpr const char* fileColumns =
    "ulid, name, folder_ulid, size, mtime_unix, version_number, locked_by_user_id";

INSTANTIATE_TEST_SUITE_P(
    Queries, HostIndexQueryTest,
    testing::Values(
        QueryCase{"TopFolders",
                  "SELECT ulid, name, parent_ulid FROM folders WHERE parent_ulid IS NULL "
                  "ORDER BY name"},
        QueryCase{"Folders",
                  "SELECT ulid, name, parent_ulid FROM folders WHERE parent_ulid = ? "
                  "ORDER BY name"},
        QueryCase{"OneFolder",
                  "SELECT ulid, name, parent_ulid FROM folders WHERE ulid = ? LIMIT 1"},
        QueryCase{"TopFiles", std::string("SELECT ") + fileColumns +
                                  " FROM items WHERE folder_ulid IS NULL ORDER BY name"},
        QueryCase{"Files", std::string("SELECT ") + fileColumns +
                               " FROM items WHERE folder_ulid = ? ORDER BY name"},
        QueryCase{"OneFile",
                  std::string("SELECT ") + fileColumns + "\nFROM items WHERE ulid = ? LIMIT 1"}),
    CaseName());

TEST_F(HostIndexTest, CanBeReadAfterACleanStop) {
  makeFile("a", "x");
  startHost();
  stopHost();
  EXPECT_THAT(paths(), ElementsAre("a"));
  // The extension may read a container that was copied without the files beside the index.
  fs::remove(inContainer("state.db-wal"));
  fs::remove(inContainer("state.db-shm"));
  EXPECT_THAT(paths(), ElementsAre("a"));
}

TEST_F(HostIndexTest, IsCompleteInOneFileAfterACleanStop) {
  makeFile("a", "x");
  startHost();
  create("b", "y");
  stopHost();
  EXPECT_EQ(fs::file_size(inContainer("state.db-wal")), 0U);
}

TEST_F(HostIndexTest, IsReadableByItsUserAlone) {
  startHost();
  struct stat info;
  for (const std::string name : {"state.db", "state.db-wal", "state.db-shm"}) {
    ASSERT_EQ(::stat(inContainer(name).c_str(), &info), 0) << name;
    EXPECT_EQ(info.st_mode & 0777, 0600U) << name;
  }
}

TEST_F(HostIndexTest, EachAccountHasItsOwn) {
  const std::string other = directory_.file("other");
  fs::create_directory(other);
  writeFile(other + "/of-42", "x");
  makeFile("of-primary", "x");
  auto both = options();
  both.accounts["42"] = host::FolderSource{other};
  startHost(both);
  EXPECT_THAT(paths(), ElementsAre("of-primary"));
  EXPECT_THAT(paths("state-42.db"), ElementsAre("of-42"));
  const json reply = ask({{"op", "create"}, {"account", "42"}, {"name", "new"}});
  EXPECT_EQ(reply["ok"], true);
  EXPECT_THAT(paths("state-42.db"), ElementsAre("new/", "of-42"));
  EXPECT_THAT(paths(), ElementsAre("of-primary"));
}

TEST_F(HostIndexTest, NamesThatAreNotUtf8AreCarriedAsTheyAre) {
  makeFile("caf\xE9.txt", "x");
  startHost();
  EXPECT_TRUE(hasRow("caf\xE9.txt"));
  const json reply = ask({{"op", "fetch"}, {"ulid", row("caf\xE9.txt").ulid}});
  EXPECT_EQ(readFile(reply["path"]), "x");
}

TEST_F(HostIndexTest, LinksAndSpecialFilesAreNotServed) {
  makeFile("real", "x");
  fs::create_symlink("real", inRoot("link"));
  fs::create_symlink("/etc", inRoot("folder-link"));
  ASSERT_EQ(::mkfifo(inRoot("pipe").c_str(), 0600), 0);
  startHost();
  EXPECT_THAT(paths(), ElementsAre("real"));
}

TEST_F(HostIndexTest, AHardLinkIsAnItemOfItsOwn) {
  makeFile("one", "x");
  fs::create_hard_link(inRoot("one"), inRoot("two"));
  startHost();
  EXPECT_THAT(paths(), ElementsAre("one", "two"));
  EXPECT_NE(row("one").ulid, row("two").ulid);
}

TEST_F(HostIndexTest, TheContainerInsideTheRootIsNotServed) {
  container_ = inRoot("hidden/container");
  makeFolder("hidden");
  makeFile("a", "x");
  startHost();
  EXPECT_THAT(paths(), ElementsAre("a", "hidden/"));
}

TEST_F(HostIndexTest, AnIndexOfSomebodyElseIsLeftAlone) {
  fs::create_directory(container_);
  fs::permissions(container_, fs::perms::owner_all);
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open(inContainer("state.db").c_str(), &db), SQLITE_OK);
  sqlite3_exec(db, "CREATE TABLE folders(x)", nullptr, nullptr, nullptr);
  sqlite3_close(db);
  try {
    startHost();
    FAIL() << "took it over";
  } catch (const host::StartError& error) {
    EXPECT_THAT(error.what(), testing::HasSubstr("state.db is not an index that this host wrote"));
  }
}

TEST_F(HostIndexTest, ADamagedIndexIsReportedWithItsName) {
  fs::create_directory(container_);
  fs::permissions(container_, fs::perms::owner_all);
  writeFile(inContainer("state.db"), std::string(8192, 'x'));
  EXPECT_THROW(startHost(), host::StartError);
}

TEST_F(HostIndexTest, AnotherFolderIsNotTakenForTheOneBefore) {
  makeFile("a", "x");
  startHost();
  stopHost();
  const std::string other = directory_.file("other");
  fs::create_directory(other);
  auto changed = options();
  changed.root = other;
  EXPECT_THROW(startHost(changed), host::StartError);
  EXPECT_THAT(paths(), ElementsAre("a"));
}

TEST_F(HostIndexTest, AnEmptyMountPointIsNotTakenForAnEmptyAccount) {
  makeFile("a", "x");
  startHost();
  stopHost();
  fs::rename(root_, directory_.file("aside"));
  fs::create_directory(root_);
  EXPECT_THROW(startHost(), host::StartError);
  EXPECT_THAT(paths(), ElementsAre("a"));
}

}  // namespace
}  // namespace tulo::test
