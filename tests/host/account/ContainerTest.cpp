#include "host/account/Container.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "host/base/HostError.h"
#include "tests/support/TemporaryDirectory.h"

namespace tulo::host {
namespace {

namespace fs = std::filesystem;

class ContainerTest : public testing::Test {
 protected:
  std::string refusal(const std::string& path) {
    try {
      const Container container(path);
      return {};
    } catch (const StartError& error) {
      return error.what();
    }
  }

  const test::TemporaryDirectory directory_;
  const std::string path_ = directory_.file("deep/er/container");
};

TEST_F(ContainerTest, IsMadeForItsUserAlone) {
  const Container container(path_);
  struct stat info;
  ASSERT_EQ(::stat(path_.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0700U);
  EXPECT_EQ(container.stat().inode, info.st_ino);
  EXPECT_EQ(container.pathOf("fp.sock"), path_ + "/fp.sock");
}

TEST_F(ContainerTest, ItsPathIsPlainWhateverWasGiven) {
  EXPECT_EQ(Container(directory_.file("x/../container//")).path(), directory_.file("container"));
}

TEST_F(ContainerTest, BelongsToOneAtATime) {
  {
    const Container first(path_);
    EXPECT_THAT(refusal(path_),
                testing::HasSubstr("(process " + std::to_string(::getpid()) + ") already serves"));
  }
  EXPECT_EQ(refusal(path_), "");
}

TEST_F(ContainerTest, OneThatOthersMayReadIsMadePrivate) {
  fs::create_directories(path_);
  ASSERT_EQ(::chmod(path_.c_str(), 0755), 0);
  const Container container(path_);
  EXPECT_EQ(fs::status(path_).permissions(), fs::perms::owner_all);
}

TEST_F(ContainerTest, OneThatOthersMayWriteToIsLeftAlone) {
  fs::create_directories(path_);
  ASSERT_EQ(::chmod(path_.c_str(), 0770), 0);
  EXPECT_THAT(refusal(path_), testing::HasSubstr("writable by other users"));
  EXPECT_TRUE(fs::is_empty(path_));
}

TEST_F(ContainerTest, WhatCannotBeAFolderIsExplained) {
  test::writeFile(directory_.file("file"), "x");
  EXPECT_NE(refusal(directory_.file("file")), "");
  EXPECT_NE(refusal(directory_.file("file/below")), "");
  EXPECT_NE(refusal(""), "");
}

}  // namespace
}  // namespace tulo::host
