#include "service/replica/AccountFolder.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "service/Storage.h"
#include "service/replica/ContentRows.h"
#include "service/replica/Recovery.h"
#include "tests/support/TemporaryDirectory.h"

namespace tulo::test {
namespace {

namespace fs = std::filesystem;
using Change = AccountFolder::Change;

const AccountIdentity kAnn{"ann", "/containers/ann", "1"};
const AccountIdentity kBob{"bob", "/containers/bob", "2"};

class AccountFolderTest : public ::testing::Test {
 protected:
  Change settle(const AccountIdentity& identity) {
    return AccountFolder(directory.path()).settle(identity);
  }
  std::vector<KeptReplica> kept() { return AccountFolder(directory.path()).kept(); }

  // A file that was not sent, as a service of the account leaves it behind.
  void work(const std::string& name, const std::string& text) {
    ContentId content;
    {
      Storage storage(directory.path(), directory.path(), CacheLimits());
      storage.replica().write(Durability::durable, [&](ReplicaWriter& writer) {
        content = contentRows::reserve(writer, kRootNode);
        storage.store().create(content, name);
      });
      writeFile(storage.store().path(content), text);
    }
    for (const char* file : {"replica.db", "replica.db-wal", "replica.db-shm"})
      fs::remove(directory.file(file));
    // Made anew, the replica has it as a file that was recovered.
    const Storage storage(directory.path(), directory.path(), CacheLimits());
  }

  // Nothing but what the host has.
  void look() { const Storage storage(directory.path(), directory.path(), CacheLimits()); }

  bool has(const std::string& name) const { return fs::exists(directory.file(name)); }

  TemporaryDirectory directory;
};

TEST_F(AccountFolderTest, ANewFolderIsOfWhoeverIsThere) {
  EXPECT_EQ(settle(kAnn), Change::none);
  EXPECT_EQ(readIdentity(directory.file("account")), kAnn);
}

TEST_F(AccountFolderTest, AReplicaFromBeforeThereWereNotesIsAdopted) {
  work("a", "mine");
  EXPECT_EQ(settle(kAnn), Change::none);
  EXPECT_TRUE(has("replica.db"));
}

TEST_F(AccountFolderTest, TheSameAccountGoesOn) {
  settle(kAnn);
  work("a", "mine");
  EXPECT_EQ(settle({"ann", "/elsewhere", "9"}), Change::none);
  EXPECT_EQ(settle({"", "/elsewhere", "9"}), Change::none) << "without a word the place is enough";
  EXPECT_EQ(readIdentity(directory.file("account"))->account, "ann");
  EXPECT_TRUE(has("replica.db"));
  EXPECT_TRUE(kept().empty());
}

TEST_F(AccountFolderTest, AnotherAccountGetsNothingOfTheFirst) {
  settle(kAnn);
  work("report.txt", "mine");
  EXPECT_EQ(settle(kBob), Change::setAside);
  EXPECT_FALSE(has("replica.db"));
  EXPECT_FALSE(has("contents"));
  ASSERT_EQ(kept().size(), 1U);
  EXPECT_EQ(kept()[0].identity, kAnn);
  EXPECT_EQ(kept()[0].changes, 2) << "the file and the folder of what was recovered";
  EXPECT_EQ(readFile(kept()[0].files() + "/" + kRecoveryFolder + "/report.txt"), "mine");
}

TEST_F(AccountFolderTest, WhatWasKeptComesBackWithItsAccount) {
  settle(kAnn);
  work("report.txt", "mine");
  settle(kBob);
  work("other.txt", "bob's");
  EXPECT_EQ(settle(kAnn), Change::setAside) << "that of the second account now";
  ASSERT_EQ(kept().size(), 1U);
  EXPECT_EQ(kept()[0].identity, kBob);
  Storage storage(directory.path(), directory.path(), CacheLimits());
  const auto folder = storage.replica().read(
      [](ReplicaReader& reader) { return reader.lookup(kRootNode, kRecoveryFolder); });
  ASSERT_TRUE(folder.entry);
  const auto file = storage.replica().read(
      [&](ReplicaReader& reader) { return reader.lookup(folder.entry->id, "report.txt"); });
  EXPECT_TRUE(file.entry);
}

TEST_F(AccountFolderTest, AReplicaWithNothingUnsentIsRemoved) {
  settle(kAnn);
  look();
  EXPECT_EQ(settle(kBob), Change::begun);
  EXPECT_FALSE(has("replica.db"));
  EXPECT_TRUE(kept().empty());
  EXPECT_EQ(readIdentity(directory.file("account")), kBob);
}

TEST_F(AccountFolderTest, OneThatWasRemovedMakesRoomForOneThatIsKept) {
  settle(kAnn);
  work("a", "mine");
  settle(kBob);
  look();
  EXPECT_EQ(settle(kAnn), Change::returned);
  EXPECT_TRUE(has("replica.db"));
  EXPECT_TRUE(kept().empty());
}

TEST_F(AccountFolderTest, ADamagedReplicaIsKeptWithItsContents) {
  settle(kAnn);
  work("a", "mine");
  for (const char* file : {"replica.db-wal", "replica.db-shm"})
    fs::remove(directory.file(file));
  writeFile(directory.file("replica.db"), std::string(16384, 'x'));
  EXPECT_EQ(settle(kBob), Change::setAside);
  EXPECT_FALSE(has("contents"));
  ASSERT_EQ(kept().size(), 1U);
  EXPECT_EQ(readFile(kept()[0].files() + "/a"), "mine");
}

TEST_F(AccountFolderTest, ContentsWithoutAReplicaAreTheFirstAccountsToo) {
  settle(kAnn);
  work("a", "mine");
  for (const char* file : {"replica.db", "replica.db-wal", "replica.db-shm"})
    fs::remove(directory.file(file));
  EXPECT_EQ(settle(kBob), Change::setAside);
  EXPECT_FALSE(has("contents"));
}

// A host whose word could not be read for a while, in a container that moved: its replica was set
// aside, and an empty one noted the container alone.
TEST_F(AccountFolderTest, OneThatIsSurelyOfTheAccountComesBeforeOneThatOnlySeemsToBe) {
  settle(kAnn);
  work("a", "mine");
  settle({"", "/moved", "5"});
  EXPECT_EQ(kept().size(), 1U);
  EXPECT_EQ(settle({"ann", "/moved", "5"}), Change::returned);
  EXPECT_TRUE(kept().empty());
}

TEST_F(AccountFolderTest, WhatWasInterruptedIsFinished) {
  settle(kAnn);
  work("a", "mine");
  fs::create_directories(directory.file("kept") + "/leaving");
  fs::rename(directory.file("contents"), directory.file("kept") + "/leaving/contents");
  EXPECT_EQ(settle(kBob), Change::none) << "the rest went before it was looked at";
  ASSERT_EQ(kept().size(), 1U);
  EXPECT_EQ(kept()[0].changes, 2);
  fs::rename(kept()[0].folder, directory.file("kept") + "/returning");
  fs::remove(directory.file("account"));
  EXPECT_EQ(settle(kAnn), Change::none);
  EXPECT_TRUE(has("replica.db"));
  EXPECT_TRUE(has("contents"));
  EXPECT_TRUE(kept().empty());
}

}  // namespace
}  // namespace tulo::test
