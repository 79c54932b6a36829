#include "service/mount/MountPoint.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <unistd.h>

#include <cerrno>

#include "platform/linux/FileDescriptor.h"
#include "tests/support/TemporaryDirectory.h"

namespace tulo::test {
namespace {

std::string wordsOf(const MountPoint& point) {
  try {
    point.check();
  } catch (const MountError& error) {
    return error.what();
  }
  return {};
}

TEST(MountPointTest, AFolderWillDo) {
  const TemporaryDirectory directory;
  EXPECT_EQ(wordsOf(MountPoint(directory.path())), "");
}

TEST(MountPointTest, WhatIsNoFolderIsNamed) {
  const TemporaryDirectory directory;
  const std::string file = directory.file("file");
  writeFile(file, "x");
  EXPECT_EQ(wordsOf(MountPoint(file)), "cannot mount at " + file + ": not a directory");
  const std::string missing = directory.file("missing");
  EXPECT_EQ(wordsOf(MountPoint(missing)),
            "cannot mount at " + missing + ": No such file or directory");
}

TEST(MountPointTest, NothingIsClearedFromAnOrdinaryFolder) {
  const TemporaryDirectory directory;
  writeFile(directory.file("kept"), "x");
  EXPECT_FALSE(MountPoint(directory.path()).clearStale());
  EXPECT_FALSE(MountPoint(directory.file("missing")).clearStale());
  EXPECT_EQ(readFile(directory.file("kept")), "x");
}

// As a service that was killed leaves it: the mount is there, and nobody has the connection.
TEST(MountPointTest, AMountWithoutAServiceIsCleared) {
  const TemporaryDirectory directory;
  {
    const FileDescriptor device(::open("/dev/fuse", O_RDWR | O_CLOEXEC));
    const std::string options = "fd=" + std::to_string(device.get()) +
                                ",rootmode=40000,user_id=" + std::to_string(::getuid()) +
                                ",group_id=" + std::to_string(::getgid());
    if (!device ||
        ::mount("tulo", directory.path().c_str(), "fuse.tulo", 0, options.c_str()) != 0) {
      GTEST_SKIP() << "this user may not mount";
    }
  }
  struct statfs status = {};
  ASSERT_EQ(::statfs(directory.path().c_str(), &status), -1);
  ASSERT_EQ(errno, ENOTCONN);
  EXPECT_TRUE(MountPoint(directory.path()).clearStale());
  EXPECT_EQ(::statfs(directory.path().c_str(), &status), 0);
  EXPECT_FALSE(MountPoint(directory.path()).clearStale());
}

TEST(MountPointTest, AnOrdinaryFolderIsNoMount) {
  const TemporaryDirectory directory;
  const MountPoint point(directory.path());
  EXPECT_FALSE(point.mounted());
  EXPECT_NE(point.detach(MountPoint::Detach::ifUnused, seconds(10)), MountPoint::Detached::yes);
}

// What is in memory of any file system can be forced out, so the folder need not be a mount.
TEST(MountPointTest, WritingBackNeedsAFolder) {
  const TemporaryDirectory directory;
  EXPECT_TRUE(MountPoint(directory.path()).writeBack(seconds(30)));
  EXPECT_FALSE(MountPoint(directory.file("missing")).writeBack(seconds(30)));
}

TEST(MountPointTest, AbortingWhatIsNotMountedDoesNothing) {
  const TemporaryDirectory directory;
  writeFile(directory.file("kept"), "x");
  MountPoint(directory.path()).abortConnection(MountedFileSystem{});
  EXPECT_EQ(readFile(directory.file("kept")), "x");
}

}  // namespace
}  // namespace tulo::test
