#include "service/AccountGuard.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "sqlite/Connection.h"
#include "tests/support/TemporaryDirectory.h"

namespace tulo::test {
namespace {

namespace fs = std::filesystem;

class AccountGuardTest : public ::testing::Test {
 protected:
  AccountGuardTest() {
    fs::create_directories(state);
    fs::create_directories(container);
  }

  // As a host that is set up puts its index there, whole.
  void index(const std::string& account) {
    const std::string fresh = directory.file("index");
    {
      sqlite::Connection database(fresh, sqlite::Connection::Mode::create);
      database.execute("CREATE TABLE host_identity(id TEXT); INSERT INTO host_identity VALUES('" +
                       account + "')");
    }
    fs::rename(fresh, container + "/state.db");
  }

  SourceFiles source() const { return {container, "state.db"}; }
  std::string noted() { return readIdentity(state + "/account")->account; }

  TemporaryDirectory directory;
  const std::string state = directory.file("state");
  const std::string container = directory.file("container");
};

TEST_F(AccountGuardTest, AnAccountHoldsAsLongAsItsIndexIsThere) {
  index("ann");
  AccountGuard guard(state, source());
  EXPECT_EQ(guard.notice(), "");
  EXPECT_TRUE(guard.holds());
  index("ann");
  EXPECT_TRUE(guard.holds()) << "made anew";
  fs::remove(container + "/state.db");
  EXPECT_TRUE(guard.holds()) << "gone for a while";
}

TEST_F(AccountGuardTest, AnIndexOfAnotherAccountEndsThatUntilItsOwnIsBack) {
  index("ann");
  AccountGuard guard(state, source());
  index("bob");
  EXPECT_FALSE(guard.holds());
  EXPECT_FALSE(guard.holds());
  EXPECT_EQ(noted(), "ann");
  index("ann");
  EXPECT_TRUE(guard.holds());
}

TEST_F(AccountGuardTest, AnIndexThatGetsTheNumberOfTheOneBeforeItIsAnother) {
  index("ann");
  AccountGuard guard(state, source());
  EXPECT_TRUE(guard.holds());
  // A disk gives the number of a removed file to the next one.
  fs::remove(container + "/state.db");
  index("bob");
  EXPECT_FALSE(guard.holds());
}

TEST_F(AccountGuardTest, AnIndexThatComesLaterSaysWhoseItIs) {
  AccountGuard guard(state, source());
  EXPECT_TRUE(guard.holds());
  EXPECT_EQ(noted(), "");
  index("ann");
  EXPECT_TRUE(guard.holds());
  EXPECT_EQ(noted(), "ann");
  index("bob");
  EXPECT_FALSE(guard.holds());
}

TEST_F(AccountGuardTest, AnotherContainerInItsPlaceIsAnotherAccount) {
  AccountGuard guard(state, source());
  fs::create_directories(directory.file("other"));
  fs::rename(container, directory.file("away"));
  fs::rename(directory.file("other"), container);
  EXPECT_FALSE(guard.holds());
}

TEST_F(AccountGuardTest, ADiskWithoutRoomForTheNoteStopsNobody) {
  fs::create_directories(state + "/account.new/in the way");
  AccountGuard guard(state, source());
  index("ann");
  EXPECT_TRUE(guard.holds());
  index("bob");
  EXPECT_FALSE(guard.holds()) << "it is known all the same";
}

TEST_F(AccountGuardTest, WhatIsKeptIsTold) {
  index("ann");
  { const AccountGuard guard(state, source()); }
  writeFile(state + "/replica.db", "cannot be read, so something may be in it");
  index("bob");
  const AccountGuard guard(state, source());
  ASSERT_EQ(guard.kept().size(), 1U);
  EXPECT_EQ(guard.kept()[0].container, fs::canonical(container));
  EXPECT_NE(guard.notice().find(guard.kept()[0].files), std::string::npos);
}

}  // namespace
}  // namespace tulo::test
