#include "platform/FileManager.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <functional>

#include "tests/support/TemporaryDirectory.h"

namespace tulo::platform {
namespace {

namespace fs = std::filesystem;
using test::writeFile;

class FileManagerTest : public testing::Test {
 protected:
  std::string at(const std::string& name) const { return directory_.file(name); }
  URL url(const std::string& name) const { return URL(at(name)); }

  const test::TemporaryDirectory directory_;
};

using FileExistsTest = FileManagerTest;
using CreateDirectoryTest = FileManagerTest;
using RemoveItemTest = FileManagerTest;
using ContentsTest = FileManagerTest;

std::string messageOf(const std::function<void()>& call) {
  try {
    call();
  } catch (const FileManagerError& failure) {
    return failure.what();
  }
  return "no failure";
}

TEST_F(FileExistsTest, FollowsLinksToAnythingThatIsThere) {
  writeFile(at("file"), "");
  fs::create_symlink("file", at("good"));
  fs::create_symlink("nothing", at("broken"));
  mkfifo(at("pipe").c_str(), 0600);
  EXPECT_TRUE(FileManager::fileExists(at("file")));
  EXPECT_TRUE(FileManager::fileExists(directory_.path()));
  EXPECT_TRUE(FileManager::fileExists(at("good")));
  EXPECT_TRUE(FileManager::fileExists(at("pipe")));
  EXPECT_FALSE(FileManager::fileExists(at("broken")));
  EXPECT_FALSE(FileManager::fileExists(at("none")));
  EXPECT_FALSE(FileManager::fileExists(""));
}

TEST_F(FileExistsTest, APathWithANulNamesNothing) {
  writeFile(at("file"), "");
  EXPECT_FALSE(FileManager::fileExists(at("file") + std::string("\0", 1)));
}

TEST_F(CreateDirectoryTest, CreatesTheOnesAboveAndAcceptsWhatIsThere) {
  FileManager::createDirectory(url("a/b/c"));
  FileManager::createDirectory(url("a/b/c/"));
  EXPECT_TRUE(fs::is_directory(at("a/b/c")));
  fs::create_directory_symlink("a", at("link"));
  FileManager::createDirectory(url("link"));
  FileManager::createDirectory(url("link/x"));
  EXPECT_TRUE(fs::is_directory(at("a/x")));
}

TEST_F(CreateDirectoryTest, NamesTheFolderAndTheReasonOfAFailure) {
  writeFile(at("file"), "");
  EXPECT_NE(messageOf([&] { FileManager::createDirectory(url("file")); }).find(at("file")),
            std::string::npos);
  EXPECT_NE(messageOf([&] { FileManager::createDirectory(url("file/x")); }).find("Not a directory"),
            std::string::npos);
  EXPECT_THROW(FileManager::createDirectory(URL("")), FileManagerError);
  EXPECT_THROW(FileManager::createDirectory(URL(at("a") + std::string("\0b", 2))),
               FileManagerError);
  EXPECT_FALSE(fs::exists(at("a")));
}

TEST_F(RemoveItemTest, RemovesFilesLinksAndTreesWhole) {
  fs::create_directories(at("tree/a/b"));
  writeFile(at("tree/a/b/file"), "x");
  writeFile(at("kept"), "x");
  fs::create_directory_symlink(directory_.path(), at("tree/a/up"));
  fs::create_symlink("kept", at("link"));
  mkfifo(at("tree/pipe").c_str(), 0600);
  FileManager::removeItem(url("tree/"));
  FileManager::removeItem(url("link"));
  EXPECT_FALSE(fs::exists(at("tree")));
  EXPECT_FALSE(fs::is_symlink(at("link")));
  EXPECT_EQ(test::readFile(at("kept")), "x");
}

TEST_F(RemoveItemTest, ALinkToAFolderIsRemovedAsALink) {
  fs::create_directory(at("folder"));
  writeFile(at("folder/file"), "x");
  fs::create_directory_symlink("folder", at("link"));
  FileManager::removeItem(url("link"));
  EXPECT_TRUE(fs::exists(at("folder/file")));
  EXPECT_FALSE(fs::is_symlink(at("link")));
}

TEST_F(RemoveItemTest, NothingThereIsAnError) {
  const std::string message = messageOf([&] { FileManager::removeItem(url("none")); });
  EXPECT_TRUE(message.starts_with("cannot remove " + at("none") + ": No such file or directory"))
      << message;
  EXPECT_THROW(FileManager::removeItem(url("none/at/all")), FileManagerError);
}

// Only within the test's own folder: a file manager that refuses too little must not be able to do
// any harm. Which paths are refused everywhere is ItemPathTest's to show.
TEST_F(RemoveItemTest, RefusesPathsThatNameNoItem) {
  fs::create_directories(at("tree/inner"));
  for (const std::string path : {"tree/.", "tree/inner/..", "tree/inner/../"}) {
    EXPECT_THROW(FileManager::removeItem(url(path)), FileManagerError) << path;
  }
  EXPECT_TRUE(fs::exists(at("tree/inner")));
  EXPECT_THROW(FileManager::removeItem(URL(at("a") + std::string("\0", 1))), FileManagerError);
}

TEST_F(ContentsTest, AreTheWholeFile) {
  const std::string bytes = std::string(1'000'001, 'x') + std::string("\0\xFF", 2);
  writeFile(at("file"), bytes);
  writeFile(at("empty"), "");
  fs::create_symlink("file", at("link"));
  EXPECT_EQ(FileManager::contents(url("file")), bytes);
  EXPECT_EQ(FileManager::contents(url("link")), bytes);
  EXPECT_EQ(FileManager::contents(url("empty")), "");
}

TEST_F(ContentsTest, OfAFileThatDoesNotTellItsSizeAreReadToTheEnd) {
  const auto contents = FileManager::contents(URL("/proc/self/status"));
  ASSERT_TRUE(contents);
  EXPECT_NE(contents->find("VmRSS"), std::string::npos);
  EXPECT_EQ(contents->find('\0'), std::string::npos);
}

TEST_F(ContentsTest, AreNothingForWhatIsNoRegularFile) {
  mkfifo(at("pipe").c_str(), 0600);
  EXPECT_EQ(FileManager::contents(url("pipe")), std::nullopt);
  EXPECT_EQ(FileManager::contents(URL("/dev/zero")), std::nullopt);
  EXPECT_EQ(FileManager::contents(URL(directory_.path())), std::nullopt);
  EXPECT_EQ(FileManager::contents(url("none")), std::nullopt);
  EXPECT_EQ(FileManager::contents(URL("")), std::nullopt);
  writeFile(at("file"), "x");
  EXPECT_EQ(FileManager::contents(URL(at("file") + std::string("\0", 1))), std::nullopt);
}

}  // namespace
}  // namespace tulo::platform
