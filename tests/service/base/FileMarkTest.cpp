#include "service/base/FileMark.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "tests/support/Eventually.h"
#include "tests/support/TemporaryDirectory.h"

namespace tulo::test {
namespace {

namespace fs = std::filesystem;

class FileMarkTest : public ::testing::Test {
 protected:
  FileMarkTest() { writeFile(path, "first"); }

  TemporaryDirectory directory;
  const std::string path = directory.file("name");
};

TEST_F(FileMarkTest, WhatIsNotThereHasNone) {
  const std::string none = directory.file("none");
  EXPECT_EQ(fileMark(none), "");
  EXPECT_EQ(lastingFileMark(none), "");
  EXPECT_EQ(changeMark(none), "");
}

TEST_F(FileMarkTest, AFileKeepsItsMarkWhenItIsWrittenOrRenamed) {
  const std::string mark = fileMark(path);
  const std::string lasting = lastingFileMark(path);
  writeFile(path, "second");
  const std::string renamed = directory.file("renamed");
  fs::rename(path, renamed);
  EXPECT_EQ(fileMark(renamed), mark);
  EXPECT_EQ(lastingFileMark(renamed), lasting);
}

TEST_F(FileMarkTest, AnotherFileOfTheSameNameHasAnother) {
  const std::string mark = fileMark(path);
  const std::string lasting = lastingFileMark(path);
  writeFile(directory.file("other"), "first");
  fs::rename(directory.file("other"), path);
  EXPECT_NE(fileMark(path), mark);
  EXPECT_NE(lastingFileMark(path), lasting);
}

TEST_F(FileMarkTest, AFolderAndWhatALinkLeadsToHaveOne) {
  fs::create_symlink(path, directory.file("link"));
  EXPECT_EQ(fileMark(directory.file("link")), fileMark(path));
  EXPECT_NE(lastingFileMark(directory.path()), "");
  EXPECT_NE(lastingFileMark(directory.path()), lastingFileMark(path));
}

// It stands in files of users, who would be taken for somebody else otherwise.
TEST_F(FileMarkTest, WhatIsWrittenDownIsTheNumberAndTheBirth) {
  struct statx found = {};
  ASSERT_EQ(::statx(AT_FDCWD, path.c_str(), 0, STATX_INO | STATX_BTIME, &found), 0);
  std::string expected = std::to_string(found.stx_ino);
  if ((found.stx_mask & STATX_BTIME) != 0) {
    expected += '.' + std::to_string(found.stx_btime.tv_sec) + '.' +
                std::to_string(found.stx_btime.tv_nsec);
  }
  EXPECT_EQ(lastingFileMark(path), expected);
}

TEST_F(FileMarkTest, AChangeGivesAnotherChangeMark) {
  const std::string mark = changeMark(path);
  EXPECT_EQ(changeMark(path), mark);
  // The clock of the disk moves in steps.
  EXPECT_TRUE(eventually([&] {
    ::chmod(path.c_str(), 0600);
    return changeMark(path) != mark;
  }));
}

}  // namespace
}  // namespace tulo::test
