#include "host/folder/ServedFolder.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>

#include "host/base/Files.h"
#include "host/base/HostError.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/TemporaryDirectory.h"

namespace tulo::host {
namespace {

namespace fs = std::filesystem;

class ServedFolderTest : public testing::Test {
 protected:
  ServedFolderTest() {
    fs::create_directories(root_ + "/container");
    fs::create_directory(root_ + "/.tulo-host");
    test::writeFile(root_ + "/file", "x");
    fs::create_symlink("file", root_ + "/link");
  }
  ServedFolder served() {
    const FileDescriptor root = openFolderPath(root_);
    return ServedFolder(root_, *statEntry(root.get(), "container"), log_);
  }
  static bool serves(ServedFolder& folder, const std::string& name) {
    return folder.served("", folder.descriptor(), name).has_value();
  }

  const test::LogRecorder recorder_;
  const test::TemporaryDirectory directory_;
  const std::string root_ = directory_.file("root");
  const HostLog log_{false};
};

TEST_F(ServedFolderTest, ServesFilesAndFoldersAndNothingElse) {
  ServedFolder folder = served();
  fs::create_directory(root_ + "/folder");
  ASSERT_EQ(::mkfifo((root_ + "/pipe").c_str(), 0600), 0);
  EXPECT_TRUE(serves(folder, "file"));
  EXPECT_TRUE(serves(folder, "folder"));
  for (const char* name : {"link", "pipe", "container", ".tulo-host", "none"}) {
    EXPECT_FALSE(serves(folder, name)) << name;
  }
}

TEST_F(ServedFolderTest, TheWorkingFoldersNameIsReservedAtTheTopAlone) {
  EXPECT_TRUE(ServedFolder::isReserved("", ".tulo-host"));
  EXPECT_FALSE(ServedFolder::isReserved("01ARYZ6S410000000000000000", ".tulo-host"));
  EXPECT_FALSE(ServedFolder::isReserved("", "file"));
}

TEST_F(ServedFolderTest, SaysOnceWhatItLeavesOut) {
  ServedFolder folder = served();
  serves(folder, "link");
  serves(folder, "link");
  folder.tellUnreadable("u", "d", "why");
  folder.tellUnreadable("u", "d", "why");
  std::vector<std::string> messages;
  for (const test::LogLine& line : recorder_.lines())
    messages.push_back(line.message);
  EXPECT_THAT(messages,
              testing::ElementsAre(
                  "not serving \"link\": it is neither a file nor a folder",
                  "not serving \"d\": it cannot be read, and what is known of it stays: why"));
}

TEST_F(ServedFolderTest, AFolderThatWasMovedAwayIsNotThereUntilItIsBack) {
  ServedFolder folder = served();
  EXPECT_NO_THROW(folder.requireThere());
  fs::rename(root_, directory_.file("aside"));
  for (int round = 0; round < 2; ++round) {
    try {
      folder.requireThere();
      ADD_FAILURE() << "is said to be there";
    } catch (const OperationError& error) {
      EXPECT_EQ(error.kind(), "network");
    }
  }
  fs::create_directory(root_);
  EXPECT_THROW(folder.requireThere(), OperationError) << "another folder of the same name";
  EXPECT_EQ(recorder_.lines().size(), 1U) << "said once";
  fs::remove(root_);
  fs::rename(directory_.file("aside"), root_);
  EXPECT_NO_THROW(folder.requireThere());
}

}  // namespace
}  // namespace tulo::host
