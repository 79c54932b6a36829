#include "service/mount/MountPoint.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <unistd.h>

#include <cerrno>
#include <sstream>

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

std::string numberIn(const std::string& table, const std::string& path) {
  std::istringstream stream(table);
  return MountPoint(path).connectionNumber(stream);
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

TEST(MountPointTest, TheConnectionIsTheMinorNumberOfTheDevice) {
  const std::string table =
      "22 1 8:1 / / rw - ext4 /dev/sda1 rw\n"
      "40 22 0:51 / /home/ann/Mounted rw,nosuid - fuse.tulo account rw,user_id=1000\n"
      "41 22 0:52 / /home/ann/Other rw,nosuid - fuse.tulo account rw,user_id=1000\n";
  EXPECT_EQ(numberIn(table, "/home/ann/Mounted"), "51");
  EXPECT_EQ(numberIn(table, "/home/ann/x/../Other"), "52");
}

TEST(MountPointTest, OfSeveralMountsTheUppermostCounts) {
  const std::string table =
      "40 22 0:51 / /mnt/a rw - fuse.tulo a rw\n"
      "41 40 0:77 / /mnt/a rw - fuse.tulo b rw\n";
  EXPECT_EQ(numberIn(table, "/mnt/a"), "77");
}

TEST(MountPointTest, OthersMountsHaveNoConnectionOfOurs) {
  const std::string table =
      "40 22 0:51 / /mnt/a rw - fuse.other a rw\n"
      "41 22 8:2 / /mnt/b rw - ext4 /dev/sdb rw\n";
  EXPECT_EQ(numberIn(table, "/mnt/a"), "");
  EXPECT_EQ(numberIn(table, "/mnt/b"), "");
  EXPECT_EQ(numberIn(table, "/mnt/c"), "");
}

TEST(MountPointTest, AbortingWhatIsNotMountedDoesNothing) {
  const TemporaryDirectory directory;
  writeFile(directory.file("kept"), "x");
  MountPoint(directory.path()).abortConnection();
  EXPECT_EQ(readFile(directory.file("kept")), "x");
}

}  // namespace
}  // namespace tulo::test
