#include "sqlite/DatabaseError.h"

#include <gtest/gtest.h>

#include <string>

#include "sqlite/Connection.h"
#include "tests/support/TemporaryDirectory.h"

namespace tulo::sqlite {
namespace {

TEST(DatabaseErrorTest, NamesTheFileAndWhatIsWrong) {
  const test::TemporaryDirectory directory;
  Connection connection(directory.file("some.db"), Connection::Mode::create);
  try {
    connection.execute("SELECT * FROM missing");
    FAIL() << "was answered";
  } catch (const DatabaseError& error) {
    EXPECT_EQ(std::string(error.what()), "some.db: no such table: missing");
    EXPECT_EQ(error.code(), SQLITE_ERROR);
    EXPECT_FALSE(error.meansFullDisk());
    EXPECT_FALSE(error.meansDamage());
  }
}

TEST(DatabaseErrorTest, WithoutAConnectionTheNumberSpeaks) {
  try {
    fail(nullptr, SQLITE_NOMEM);
  } catch (const DatabaseError& error) {
    EXPECT_EQ(std::string(error.what()), sqlite3_errstr(SQLITE_NOMEM));
  }
}

TEST(DatabaseErrorTest, AFullDatabaseIsAFullDisk) {
  const test::TemporaryDirectory directory;
  Connection connection(directory.file("some.db"), Connection::Mode::create);
  connection.execute("CREATE TABLE t(x); PRAGMA max_page_count=2");
  try {
    connection.execute("INSERT INTO t VALUES(zeroblob(100000))");
    FAIL() << "had room";
  } catch (const DatabaseError& error) {
    EXPECT_TRUE(error.meansFullDisk());
  }
}

TEST(DatabaseErrorTest, WhatIsNoDatabaseIsDamaged) {
  const test::TemporaryDirectory directory;
  test::writeFile(directory.file("some.db"), std::string(8192, 'x'));
  Connection connection(directory.file("some.db"), Connection::Mode::create);
  try {
    connection.execute("CREATE TABLE t(x)");
    FAIL() << "was taken for a database";
  } catch (const DatabaseError& error) {
    EXPECT_TRUE(error.meansDamage());
  }
}

}  // namespace
}  // namespace tulo::sqlite
