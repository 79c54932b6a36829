#include "host/base/Files.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>
#include <set>

#include "host/base/HostError.h"
#include "tests/support/TemporaryDirectory.h"

namespace tulo::host {
namespace {

namespace fs = std::filesystem;

class FilesTest : public testing::Test {
 protected:
  void write(const std::string& name) const { test::writeFile(directory_.file(name), name); }
  std::string bytes(const std::string& name) const { return test::readFile(directory_.file(name)); }
  bool exists(const std::string& name) const {
    return fs::exists(fs::symlink_status(directory_.file(name)));
  }

  const test::TemporaryDirectory directory_;
  const FileDescriptor folder_ = openFolderPath(directory_.path());
};

TEST_F(FilesTest, OnlyThePathOfTheUserFollowsLinks) {
  fs::create_directory(directory_.file("folder"));
  write("file");
  fs::create_directory_symlink("folder", directory_.file("to-folder"));
  fs::create_symlink("file", directory_.file("to-file"));
  EXPECT_TRUE(openFolderPath(directory_.file("to-folder")));
  EXPECT_FALSE(openFolder(folder_.get(), "to-folder"));
  EXPECT_FALSE(openFile(folder_.get(), "to-file"));
  EXPECT_TRUE(openFolder(folder_.get(), "folder"));
  EXPECT_TRUE(openFile(folder_.get(), "file"));
}

TEST_F(FilesTest, WhatIsOfAnotherKindIsNotOpened) {
  fs::create_directory(directory_.file("folder"));
  write("file");
  ASSERT_EQ(::mkfifo(directory_.file("pipe").c_str(), 0600), 0);
  EXPECT_FALSE(openFile(folder_.get(), "folder"));
  EXPECT_FALSE(openFolder(folder_.get(), "file"));
  EXPECT_FALSE(openFile(folder_.get(), "pipe")) << "and nobody waits for its other end";
  EXPECT_FALSE(openFile(folder_.get(), "none"));
  EXPECT_THROW(openFolderPath(directory_.file("none")), OperationError);
}

TEST_F(FilesTest, AFolderIsMadeOnceAndForItsUserAlone) {
  EXPECT_TRUE(makeFolder(folder_.get(), "new"));
  EXPECT_TRUE(makeFolder(folder_.get(), "new"));
  EXPECT_EQ(fs::status(directory_.file("new")).permissions(), fs::perms::owner_all);
  write("file");
  EXPECT_THROW(makeFolder(folder_.get(), "file"), OperationError);
}

TEST_F(FilesTest, EveryEntryIsVisitedEachTime) {
  write("a");
  write(".hidden");
  for (int round = 0; round < 2; ++round) {
    std::set<std::string> names;
    forEachEntry(folder_.get(), [&](const std::string& name) { names.insert(name); });
    EXPECT_THAT(names, testing::ElementsAre(".hidden", "a"));
  }
}

TEST_F(FilesTest, ATreeIsRemovedAndWhatItsLinksPointToStays) {
  write("precious");
  fs::create_directories(directory_.file("tree/sub"));
  fs::create_symlink("../precious", directory_.file("tree/link"));
  removeTree(folder_.get(), "tree");
  removeTree(folder_.get(), "never there");
  EXPECT_FALSE(exists("tree"));
  EXPECT_TRUE(exists("precious"));
}

TEST_F(FilesTest, AMoveOverwritesNothing) {
  write("a");
  write("b");
  EXPECT_EQ(moveEntry(folder_.get(), "a", folder_.get(), "b"), MoveResult::taken);
  EXPECT_EQ(bytes("b"), "b");
  EXPECT_EQ(moveEntry(folder_.get(), "a", folder_.get(), "c"), MoveResult::moved);
  EXPECT_EQ(bytes("c"), "a");
  EXPECT_THROW(moveEntry(folder_.get(), "none", folder_.get(), "d"), OperationError);
}

TEST_F(FilesTest, AReplacementDoes) {
  write("a");
  write("b");
  replaceFile(folder_.get(), "a", folder_.get(), "b");
  EXPECT_EQ(bytes("b"), "a");
  EXPECT_FALSE(exists("a"));
}

TEST_F(FilesTest, TwoEntriesChangePlaces) {
  write("a");
  fs::create_directory(directory_.file("b"));
  if (!exchangeEntries(folder_.get(), "a", folder_.get(), "b")) {
    GTEST_SKIP() << "this file system cannot";
  }
  EXPECT_TRUE(fs::is_directory(directory_.file("a")));
  EXPECT_EQ(bytes("b"), "a");
}

TEST_F(FilesTest, SyncingTakesTreesFilesAndNothing) {
  fs::create_directories(directory_.file("tree/sub"));
  write("tree/file");
  EXPECT_NO_THROW(syncTree(folder_.get(), "tree"));
  EXPECT_NO_THROW(syncTree(folder_.get(), "none"));
  EXPECT_THROW(syncDescriptor(-1), OperationError);
}

}  // namespace
}  // namespace tulo::host
