#include "host/base/EntryStat.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "host/base/Files.h"
#include "tests/support/TemporaryDirectory.h"

namespace tulo::host {
namespace {

namespace fs = std::filesystem;

class EntryStatTest : public testing::Test {
 protected:
  const test::TemporaryDirectory directory_;
  const FileDescriptor folder_ = openFolderPath(directory_.path());
};

TEST_F(EntryStatTest, TellsFilesFoldersAndTheRestApart) {
  test::writeFile(directory_.file("file"), "hello");
  fs::create_directory(directory_.file("folder"));
  fs::create_symlink("file", directory_.file("link"));
  ASSERT_EQ(::mkfifo(directory_.file("pipe").c_str(), 0600), 0);
  EXPECT_TRUE(statEntry(folder_.get(), "file")->isFile);
  EXPECT_EQ(statEntry(folder_.get(), "file")->size, 5);
  EXPECT_TRUE(statEntry(folder_.get(), "folder")->isFolder);
  EXPECT_TRUE(statEntry(folder_.get(), "link")->isLink);
  EXPECT_TRUE(statEntry(folder_.get(), "link")->isOther());
  EXPECT_FALSE(statEntry(folder_.get(), "pipe")->isLink);
  EXPECT_TRUE(statEntry(folder_.get(), "pipe")->isOther());
}

TEST_F(EntryStatTest, WhatIsNotThereIsNothing) {
  test::writeFile(directory_.file("file"), "x");
  EXPECT_FALSE(statEntry(folder_.get(), "none"));
  EXPECT_FALSE(statEntry(folder_.get(), "file/below"));
  EXPECT_FALSE(statEntry(folder_.get(), std::string(256, 'n')));
}

TEST_F(EntryStatTest, TimesAreKeptToTheNanosecondAlsoBeforeTheEpoch) {
  test::writeFile(directory_.file("old"), "x");
  const timespec times[2] = {{0, UTIME_OMIT}, {-10, 500'000'001}};
  ASSERT_EQ(::utimensat(folder_.get(), "old", times, 0), 0);
  const DiskTime expected{std::chrono::seconds(-10) + std::chrono::nanoseconds(500'000'001)};
  EXPECT_EQ(statEntry(folder_.get(), "old")->modified, expected);
  EXPECT_GT(statEntry(folder_.get(), "old")->changed, DiskTime());
}

TEST_F(EntryStatTest, ADescriptorSaysTheSameAsTheName) {
  fs::create_directory(directory_.file("folder"));
  const EntryStat byName = *statEntry(folder_.get(), "folder");
  const EntryStat opened = statDescriptor(openFolder(folder_.get(), "folder").get());
  EXPECT_EQ(opened.inode, byName.inode);
  EXPECT_EQ(opened.device, byName.device);
  EXPECT_EQ(opened.born, byName.born);
}

}  // namespace
}  // namespace tulo::host
