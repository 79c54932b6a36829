#include "host/index/IndexDatabase.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <vector>

#include "host/base/HostError.h"
#include "tests/support/TemporaryDirectory.h"

namespace tulo::host {
namespace {

namespace fs = std::filesystem;

constexpr const char* ownTable = "CREATE TABLE host_numbers(n INTEGER);";
constexpr const char* insertOne = "INSERT INTO host_numbers VALUES(1)";

class IndexDatabaseTest : public testing::Test {
 protected:
  // As somebody else sees it.
  std::int64_t committed() {
    return sqlite::Connection(path_, sqlite::Connection::Mode::readOnly)
        .integer("SELECT count(*) FROM host_numbers");
  }

  std::vector<std::string> identities() {
    sqlite::Connection reader(path_, sqlite::Connection::Mode::readOnly);
    sqlite::Statement row = reader.prepare("SELECT id FROM host_identity");
    std::vector<std::string> result;
    while (row.step())
      result.emplace_back(row.text(0));
    return result;
  }

  const test::TemporaryDirectory directory_;
  const std::string path_ = directory_.file("state.db");
};

TEST_F(IndexDatabaseTest, IsMadeWithAllTablesForItsUserAlone) {
  const IndexDatabase database(path_, ownTable);
  sqlite::Connection reader(path_, sqlite::Connection::Mode::readOnly);
  EXPECT_EQ(reader.integer("SELECT count(*) FROM folders"), 0);
  EXPECT_EQ(reader.integer("SELECT count(*) FROM items"), 0);
  EXPECT_EQ(reader.integer("SELECT count(*) FROM host_numbers"), 0);
  struct stat info;
  ASSERT_EQ(::stat(path_.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0600U);
}

TEST_F(IndexDatabaseTest, IsOpenedAgainWithWhatIsInIt) {
  {
    IndexDatabase database(path_, ownTable);
    database.changing(insertOne).run();
    database.commit();
  }
  const IndexDatabase again(path_, ownTable);
  EXPECT_EQ(committed(), 1);
}

TEST_F(IndexDatabaseTest, ChangesShowTogetherAtTheCommit) {
  IndexDatabase database(path_, ownTable);
  EXPECT_EQ(database.pending(), 0U);
  database.changing(insertOne).run();
  database.changing(insertOne).run();
  EXPECT_EQ(database.pending(), 2U);
  EXPECT_EQ(committed(), 0);
  database.commit();
  EXPECT_EQ(database.pending(), 0U);
  EXPECT_EQ(committed(), 2);
  database.commit();
}

TEST_F(IndexDatabaseTest, WhatIsRolledBackIsGone) {
  IndexDatabase database(path_, ownTable);
  database.changing(insertOne).run();
  database.rollback();
  database.rollback();
  database.commit();
  EXPECT_EQ(committed(), 0);
}

TEST_F(IndexDatabaseTest, WhatIsNotKeptIsGoneAtTheEndOfTheScope) {
  IndexDatabase database(path_, ownTable);
  {
    const IndexChanges changes(database);
    database.changing(insertOne).run();
  }
  EXPECT_EQ(database.pending(), 0U);
  {
    IndexChanges changes(database);
    database.changing(insertOne).run();
    changes.keep();
  }
  EXPECT_EQ(committed(), 1);
}

TEST_F(IndexDatabaseTest, WhatWasNeverCommittedIsDroppedAtTheEnd) {
  {
    IndexDatabase database(path_, ownTable);
    database.changing(insertOne).run();
  }
  EXPECT_EQ(committed(), 0);
}

TEST_F(IndexDatabaseTest, ACheckpointLeavesEverythingInOneFile) {
  IndexDatabase database(path_, ownTable);
  database.changing(insertOne).run();
  database.commit();
  EXPECT_GT(fs::file_size(path_ + "-wal"), 0U);
  database.checkpoint();
  EXPECT_EQ(fs::file_size(path_ + "-wal"), 0U);
}

TEST_F(IndexDatabaseTest, TheLogsFilesStayForReaders) {
  { const IndexDatabase database(path_, ownTable); }
  EXPECT_TRUE(fs::exists(path_ + "-wal"));
}

TEST_F(IndexDatabaseTest, IsMadeWithItsIdentityAndKeepsIt) {
  {
    IndexDatabase database(path_, ownTable, "it's mine");
    EXPECT_EQ(identities(), (std::vector<std::string>{"it's mine"}));
    database.identify("another");
    database.commit();
  }
  const IndexDatabase again(path_, ownTable, "another");
  EXPECT_EQ(identities(), (std::vector<std::string>{"it's mine"}));
}

TEST_F(IndexDatabaseTest, AnIndexOfAnEarlierVersionGetsItsIdentityLater) {
  { const IndexDatabase database(path_, ownTable); }
  IndexDatabase database(path_, ownTable, "not asked for before it is known to be right");
  database.identify("mine");
  database.commit();
  EXPECT_EQ(identities(), (std::vector<std::string>{"mine"}));
}

TEST_F(IndexDatabaseTest, WhatAnotherProgramHasMadeIsRefused) {
  sqlite::Connection(path_, sqlite::Connection::Mode::create).execute("CREATE TABLE folders(x)");
  EXPECT_THROW(IndexDatabase(path_, ownTable), StartError);
}

TEST_F(IndexDatabaseTest, AnIndexOfAnotherVersionIsRefused) {
  { const IndexDatabase database(path_, ownTable); }
  sqlite::Connection(path_, sqlite::Connection::Mode::create)
      .execute("UPDATE host_state SET value = '2' WHERE key = 'schema'");
  EXPECT_THROW(IndexDatabase(path_, ownTable), StartError);
}

}  // namespace
}  // namespace tulo::host
