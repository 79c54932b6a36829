#include "sqlite/Connection.h"

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <string>

#include "tests/support/TemporaryDirectory.h"

namespace tulo::sqlite {
namespace {

namespace fs = std::filesystem;

class ConnectionTest : public testing::Test {
 protected:
  using Mode = Connection::Mode;

  // A database with a write-ahead log and one table.
  Connection madeWithLog() {
    Connection connection(path_, Mode::create);
    connection.execute("PRAGMA journal_mode=WAL; CREATE TABLE t(x)");
    return connection;
  }

  const test::TemporaryDirectory directory_;
  const std::string path_ = directory_.file("some.db");
};

TEST_F(ConnectionTest, OnlyCreatingMakesAFile) {
  EXPECT_THROW(Connection(path_, Mode::readOnly), DatabaseError);
  EXPECT_THROW(Connection(path_, Mode::queryOnly), DatabaseError);
  EXPECT_FALSE(fs::exists(path_));
  Connection(path_, Mode::create).execute("CREATE TABLE t(x)");
  EXPECT_TRUE(fs::exists(path_));
}

TEST_F(ConnectionTest, WhatOnlyReadsCannotWrite) {
  Connection(path_, Mode::create).execute("CREATE TABLE t(x)");
  for (const Mode mode : {Mode::readOnly, Mode::queryOnly}) {
    Connection connection(path_, mode);
    EXPECT_EQ(connection.integer("SELECT count(*) FROM t"), 0);
    EXPECT_THROW(connection.execute("INSERT INTO t VALUES(1)"), DatabaseError);
  }
}

TEST_F(ConnectionTest, TheErrorNamesTheFile) {
  try {
    Connection(directory_.file("none/some.db"), Mode::create);
    FAIL() << "opened";
  } catch (const DatabaseError& error) {
    EXPECT_NE(std::string(error.what()).find("none/some.db"), std::string::npos);
  }
}

TEST_F(ConnectionTest, ACachedStatementIsPreparedOnce) {
  Connection connection(path_, Mode::create);
  Statement* const first = &connection.cached("SELECT 1");
  EXPECT_EQ(&connection.cached("SELECT 1"), first);
  EXPECT_NE(&connection.cached("SELECT 2"), first);
}

TEST_F(ConnectionTest, ANumberThatIsNotThereIsZero) {
  Connection connection(path_, Mode::create);
  EXPECT_EQ(connection.integer("SELECT 7"), 7);
  EXPECT_EQ(connection.integer("SELECT 7 WHERE 0"), 0);
}

TEST_F(ConnectionTest, KnowsWhetherATransactionIsOpen) {
  Connection connection(path_, Mode::create);
  EXPECT_FALSE(connection.inTransaction());
  connection.execute("BEGIN");
  EXPECT_TRUE(connection.inTransaction());
  connection.execute("COMMIT");
  EXPECT_FALSE(connection.inTransaction());
}

TEST_F(ConnectionTest, CountsTheRowsOfTheLastChange) {
  Connection connection(path_, Mode::create);
  connection.execute("CREATE TABLE t(x); INSERT INTO t VALUES(1), (2), (3)");
  connection.execute("DELETE FROM t WHERE x > 1");
  EXPECT_EQ(connection.changes(), 2);
}

TEST_F(ConnectionTest, CountedFramesStayInTheLogUntilTheCheckpoint) {
  std::atomic<int> frames = 0;
  Connection connection = madeWithLog();
  connection.countLogFrames(frames);
  connection.execute("INSERT INTO t VALUES(1)");
  EXPECT_GT(frames, 0);
  const auto before = fs::file_size(path_);
  connection.execute("INSERT INTO t VALUES(zeroblob(100000))");
  EXPECT_EQ(fs::file_size(path_), before);
  connection.checkpoint();
  EXPECT_GT(fs::file_size(path_), before);
}

TEST_F(ConnectionTest, TheLogsFilesGoWithTheLastConnectionUnlessTheyAreKept) {
  madeWithLog();
  EXPECT_FALSE(fs::exists(path_ + "-wal"));
  {
    Connection connection(path_, Mode::create);
    connection.keepLogFiles();
    connection.execute("INSERT INTO t VALUES(1)");
  }
  EXPECT_TRUE(fs::exists(path_ + "-wal"));
}

}  // namespace
}  // namespace tulo::sqlite
