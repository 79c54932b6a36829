#include "service/mount/MountUsers.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "tests/support/TemporaryDirectory.h"

namespace tulo::test {
namespace {

namespace fs = std::filesystem;

// A folder like /proc, in which a test says what each process has.
class MountUsersTest : public ::testing::Test {
 protected:
  MountUsersTest() {
    mount.number = 40;
    mount.major = 0;
    mount.minor = 0x33;
    mount.point = "/home/ann/Cloud";
  }

  fs::path process(int number, const std::string& name) {
    const fs::path path = fs::path(processes.path()) / std::to_string(number);
    fs::create_directories(path / "fd");
    fs::create_directories(path / "fdinfo");
    writeFile(path / "comm", name + "\n");
    return path;
  }

  static void has(const fs::path& process, int descriptor, const std::string& target,
                  const std::string& flags, int mount) {
    const std::string number = std::to_string(descriptor);
    fs::create_symlink(target, process / "fd" / number);
    writeFile(process / "fdinfo" / number,
              "pos:\t0\nflags:\t" + flags + "\nmnt_id:\t" + std::to_string(mount) + "\nino:\t7\n");
  }

  std::vector<MountUser> users() { return usersOf(mount, processes.path()); }

  MountedFileSystem mount;
  TemporaryDirectory processes;
};

TEST_F(MountUsersTest, WhoHasAFileOpenUsesIt) {
  has(process(7, "vim"), 3, "/home/ann/Cloud/report.txt", "0100002", 40);
  has(process(8, "less"), 4, "/home/ann/Cloud/report.txt", "0100000", 40);
  std::vector<MountUser> found = users();
  std::sort(found.begin(), found.end(),
            [](const auto& a, const auto& b) { return a.process < b.process; });
  EXPECT_EQ(found, (std::vector<MountUser>{{7, "vim", "/home/ann/Cloud/report.txt", true},
                                           {8, "less", "/home/ann/Cloud/report.txt", false}}));
}

TEST_F(MountUsersTest, WhatItWritesIsToldFirst) {
  const fs::path editor = process(7, "vim");
  has(editor, 3, "/home/ann/Cloud/a", "0100000", 40);
  has(editor, 4, "/home/ann/Cloud/b", "0100001", 40);
  has(editor, 5, "/home/ann/Cloud/c", "0100000", 40);
  EXPECT_EQ(users(), (std::vector<MountUser>{{7, "vim", "/home/ann/Cloud/b", true}}));
}

// The name alone proves nothing: it may be that of another mount, or none after the mount was taken
// from its place.
TEST_F(MountUsersTest, TheNumberOfTheMountDecides) {
  has(process(7, "vim"), 3, "/home/ann/Cloud/report.txt", "0100002", 41);
  has(process(8, "vim"), 3, "/report.txt", "0100002", 40);
  EXPECT_EQ(users(), (std::vector<MountUser>{{8, "vim", "/report.txt", true}}));
}

TEST_F(MountUsersTest, WhoStandsInAFolderUsesIt) {
  fs::create_symlink("/home/ann/Cloud/docs", process(7, "bash") / "cwd");
  fs::create_symlink("/home/ann/Cloud", process(8, "bash") / "root");
  fs::create_symlink("/home/ann/Cloud2", process(9, "bash") / "cwd");
  fs::create_symlink("/home/ann", process(10, "bash") / "cwd");
  EXPECT_EQ(users().size(), 2U);
}

TEST_F(MountUsersTest, AMappingUsesIt) {
  writeFile(process(7, "db") / "maps",
            "7f00-7f01 r--p 00000000 08:01 5 /lib/x\n"
            "7f02-7f03 rw-s 00000000 00:33 9 /home/ann/Cloud/data base\n");
  writeFile(process(8, "other") / "maps", "7f02-7f03 rw-s 00000000 00:34 9 /home/ann/Other/data\n");
  EXPECT_EQ(users(), (std::vector<MountUser>{{7, "db", "/home/ann/Cloud/data base", true}}));
}

TEST_F(MountUsersTest, ThisProcessAndWhatIsNoProcessAreLeftOut) {
  has(process(::getpid(), "tulo"), 3, "/home/ann/Cloud/a", "0100002", 40);
  fs::create_directories(fs::path(processes.path()) / "self");
  fs::create_symlink("/home/ann/Cloud", fs::path(processes.path()) / "self" / "cwd");
  EXPECT_TRUE(users().empty());
}

TEST_F(MountUsersTest, OddDescriptorsDoNotDisturb) {
  const fs::path odd = process(7, "odd");
  writeFile(odd / "fdinfo" / "3", "");
  writeFile(odd / "fdinfo" / "4",
            "pos:\t0\nflags:\t02004000\nmnt_id:\t15\nino:\t1\ninotify wd:1 ino:2 mnt_id: x\n");
  has(odd, 5, "/home/ann/Cloud/a", "0100000", 40);
  EXPECT_EQ(users().size(), 1U);
}

}  // namespace
}  // namespace tulo::test
