#include "host/folder/FolderAccount.h"

#include <gmock/gmock.h>
#include <sys/mount.h>

#include <filesystem>

#include "tests/host/HostFixture.h"

namespace tulo::test {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;

class HostLockTest : public HostTest {
 protected:
  json lock(const std::string& path, int user) {
    return ask({{"op", "lock"}, {"path", path}, {"user", user}});
  }
};

TEST_F(HostLockTest, ALockedFileCanBeReadButNotChanged) {
  makeFolder("d");
  makeFile("d/a", "x");
  startHost();
  EXPECT_EQ(lock("d/a", 0)["ok"], true);
  const IndexRow file = row("d/a");
  EXPECT_EQ(file.lockedBy, 0);
  EXPECT_EQ(ask({{"op", "fetch"}, {"ulid", file.ulid}})["ok"], true);
  json modify{{"op", "modify"}, {"ulid", file.ulid}, {"is_folder", false}, {"name", "b"}};
  EXPECT_EQ(kindOf(ask(modify)), "locked");
  EXPECT_EQ(kindOf(ask({{"op", "delete"}, {"ulid", file.ulid}, {"is_folder", false}})), "locked");
  EXPECT_EQ(kindOf(ask({{"op", "delete"}, {"ulid", row("d").ulid}, {"is_folder", true}})),
            "locked");
  EXPECT_EQ(ask({{"op", "unlock"}, {"path", "/d//./a"}})["ok"], true);
  EXPECT_FALSE(row("d/a").lockedBy);
  EXPECT_EQ(ask(modify)["ok"], true);
}

TEST_F(HostLockTest, ALockOutlivesARestart) {
  makeFile("a", "x");
  startHost();
  lock("a", 7);
  stopHost();
  startHost();
  EXPECT_EQ(row("a").lockedBy, 7);
}

TEST_F(HostLockTest, OnlyFilesInsideTheRootCanBeLocked) {
  makeFolder("d");
  writeFile(directory_.file("outside"), "x");
  fs::create_symlink(directory_.file("outside"), inRoot("link"));
  startHost();
  EXPECT_EQ(kindOf(lock("d", 1)), "bad_request");
  EXPECT_EQ(kindOf(lock("../outside", 1)), "bad_request");
  EXPECT_EQ(kindOf(lock("link", 1)), "not_found");
  EXPECT_EQ(kindOf(lock("", 1)), "not_found");
  EXPECT_EQ(kindOf(lock("none", 1)), "not_found");
}

class HostRefusalTest : public HostTest {};

TEST_F(HostRefusalTest, SignedOutAccountsAreUnauthorizedUntilTheNextSignIn) {
  makeFile("a", "x");
  startHost();
  ASSERT_EQ(ask({{"op", "logout"}})["ok"], true);
  EXPECT_EQ(kindOf(ask({{"op", "fetch"}, {"ulid", row("a").ulid}})), "unauthorized");
  EXPECT_EQ(kindOf(ask({{"op", "thumbnail"}, {"ulid", row("a").ulid}})), "unauthorized");
  EXPECT_EQ(kindOf(create("b", "x")), "unauthorized");
  EXPECT_EQ(kindOf(createFolder("c")), "unauthorized");
  stopHost();
  startHost();
  EXPECT_EQ(kindOf(createFolder("c")), "unauthorized") << "a restart signs nobody in";
  ASSERT_EQ(ask({{"op", "login"}})["ok"], true);
  EXPECT_EQ(createFolder("c")["ok"], true);
}

TEST_F(HostRefusalTest, TheQuotaBoundsWhatFilesHoldTogether) {
  makeFile("a", "12345");
  auto limited = options();
  limited.quota = 10;
  startHost(limited);
  EXPECT_EQ(kindOf(create("b", "123456")), "quota");
  EXPECT_EQ(create("b", "12345")["ok"], true);
  EXPECT_EQ(createFolder("c")["ok"], true) << "folders are free";
  const std::string ulid = row("a").ulid;
  json modify{{"op", "modify"}, {"ulid", ulid}, {"is_folder", false}, {"path", stage("123456")}};
  EXPECT_EQ(kindOf(ask(modify)), "quota");
  EXPECT_EQ(readFile(inRoot("a")), "12345");
  modify["path"] = stage("54321");
  EXPECT_EQ(ask(modify)["ok"], true) << "what is replaced does not count";
  EXPECT_THAT(stagedCopies(), IsEmpty());
}

// Mounts a small file system as the root.
class HostFullDiskTest : public HostTest {
 protected:
  void SetUp() override {
    if (::mount("tulo-test", root_.c_str(), "tmpfs", 0, "size=1m") != 0) {
      GTEST_SKIP() << "mounting a small file system needs root";
    }
    mounted_ = true;
  }
  void TearDown() override {
    stopHost();
    if (mounted_) ::umount2(root_.c_str(), MNT_DETACH);
  }

 private:
  bool mounted_ = false;
};

TEST_F(HostFullDiskTest, IsSaidAndLeavesEverythingAsItWas) {
  makeFile("a", "x");
  startHost();
  const std::string large(2'000'000, 'x');
  EXPECT_EQ(kindOf(create("b", large)), "disk_full");
  const std::string ulid = row("a").ulid;
  EXPECT_EQ(
      kindOf(ask({{"op", "modify"}, {"ulid", ulid}, {"is_folder", false}, {"path", stage(large)}})),
      "disk_full");
  EXPECT_EQ(readFile(inRoot("a")), "x");
  EXPECT_THAT(paths(), ElementsAre("a"));
  EXPECT_THAT(entriesOf(inRoot(".tulo-host")), IsEmpty());
  EXPECT_THAT(stagedCopies(), IsEmpty());
}

TEST_F(HostFullDiskTest, ContentsCrossBetweenFileSystems) {
  startHost();
  const std::string ulid = create("a", "hello")["ulid"];
  EXPECT_EQ(readFile(inRoot("a")), "hello");
  EXPECT_EQ(readFile(ask({{"op", "fetch"}, {"ulid", ulid}})["path"]), "hello");
  const std::string path = inContainer("fp-upload/") + stagedName();
  fs::create_directory(path);
  writeFile(path + "/in", "y");
  fs::create_symlink("in", path + "/link");
  EXPECT_EQ(ask({{"op", "create"}, {"name", "tree"}, {"path", path}})["ok"], true);
  EXPECT_EQ(readFile(inRoot("tree/link")), "y");
  EXPECT_THAT(stagedCopies(), IsEmpty());
}

}  // namespace
}  // namespace tulo::test
