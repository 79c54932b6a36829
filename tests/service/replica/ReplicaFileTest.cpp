#include "service/replica/ReplicaFile.h"

#include <gtest/gtest.h>

#include <ctime>
#include <filesystem>
#include <set>

#include "sqlite/Connection.h"
#include "tests/support/TemporaryDirectory.h"

namespace tulo::test {
namespace {

class ReplicaFileTest : public ::testing::Test {
 protected:
  sqlite::Connection open() { return {path, sqlite::Connection::Mode::create}; }

  TemporaryDirectory directory;
  const std::string path = directory.file("replica.db");
};

TEST_F(ReplicaFileTest, IsMadeOnceAndStays) {
  { const ReplicaFile file(directory.path()); }
  open().execute("INSERT INTO meta VALUES ('mark',1)");
  const ReplicaFile file(directory.path());
  EXPECT_EQ(file.path(), path);
  EXPECT_TRUE(file.setAside().empty());
  EXPECT_EQ(open().integer("SELECT value FROM meta WHERE key='mark'"), 1);
}

TEST_F(ReplicaFileTest, WhatIsNoDatabaseIsSetAside) {
  writeFile(path, std::string(8192, 'x'));
  const ReplicaFile file(directory.path());
  EXPECT_EQ(readFile(file.setAside()), std::string(8192, 'x'));
  EXPECT_EQ(open().integer("SELECT count(*) FROM node"), 0);
}

TEST_F(ReplicaFileTest, AFolderOfItsNameIsSetAside) {
  std::filesystem::create_directory(path);
  const ReplicaFile file(directory.path());
  EXPECT_TRUE(std::filesystem::is_directory(file.setAside()));
  EXPECT_TRUE(std::filesystem::is_regular_file(path));
}

TEST_F(ReplicaFileTest, DamageInsideIsFoundOnlyWhereThereWasASuspicion) {
  {
    const ReplicaFile file(directory.path());
    sqlite::Connection database = open();
    for (int i = 0; i < 200; ++i) {
      database.execute("INSERT INTO meta VALUES ('key" + std::to_string(i) + "',zeroblob(1000))");
    }
    database.execute("PRAGMA wal_checkpoint(TRUNCATE)");
  }
  std::string bytes = readFile(path);
  bytes.replace(bytes.size() - 40'960, 40'960, std::string(40'960, 'x'));
  writeFile(path, bytes);
  {
    const ReplicaFile file(directory.path());
    EXPECT_TRUE(file.setAside().empty());
    file.suspect(sqlite::DatabaseError(SQLITE_FULL, "no damage"));
  }
  {
    const ReplicaFile file(directory.path());
    EXPECT_TRUE(file.setAside().empty());
    file.suspect(sqlite::DatabaseError(SQLITE_CORRUPT, "damage"));
  }
  const ReplicaFile file(directory.path());
  EXPECT_FALSE(file.setAside().empty());
  EXPECT_EQ(open().integer("SELECT count(*) FROM node"), 0);
}

TEST_F(ReplicaFileTest, OneThatWasSetAsideIsNotReplacedByTheNext) {
  // As after the clock was set back.
  std::set<std::string> before;
  for (std::time_t time = std::time(nullptr); before.size() < 30; ++time) {
    const std::string aside = path + ".damaged-" + std::to_string(time);
    writeFile(aside, "precious");
    before.insert(aside);
  }
  writeFile(path, std::string(8192, 'x'));
  const ReplicaFile file(directory.path());
  EXPECT_EQ(readFile(file.setAside()), std::string(8192, 'x'));
  for (const std::string& aside : before)
    EXPECT_EQ(readFile(aside), "precious");
}

}  // namespace
}  // namespace tulo::test
