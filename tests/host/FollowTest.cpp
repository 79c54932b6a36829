// The index follows what other programs do in the folder, while the host runs and while it does
// not.

#include <gmock/gmock.h>
#include <grp.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "tests/host/HostFixture.h"
#include "tests/support/Eventually.h"
#include "tests/support/LogRecorder.h"

namespace tulo::test {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;
using Paths = std::vector<std::string>;

class HostFollowTest : public HostTest {
 protected:
  bool becomes(const Paths& expected) {
    return eventually([&] { return paths() == expected; });
  }
  bool reachesVersion(const std::string& path, std::int64_t version) {
    return eventually([&] { return rows()[path].version >= version; });
  }
};

TEST_F(HostFollowTest, NewFilesAndFoldersAppear) {
  startHost();
  makeFile("a", "x");
  EXPECT_TRUE(becomes({"a"}));
  makeFolder("d/e");
  makeFile("d/e/f", "x");
  EXPECT_TRUE(becomes({"a", "d/", "d/e/", "d/e/f"}));
  makeFile("d/e/later", "x");
  EXPECT_TRUE(becomes({"a", "d/", "d/e/", "d/e/f", "d/e/later"}));
}

TEST_F(HostFollowTest, RemovedOnesDisappear) {
  makeFolder("d");
  makeFile("d/a", "x");
  makeFile("b", "x");
  startHost();
  fs::remove(inRoot("b"));
  EXPECT_TRUE(becomes({"d/", "d/a"}));
  fs::remove_all(inRoot("d"));
  EXPECT_TRUE(becomes({}));
}

TEST_F(HostFollowTest, ChangedContentsAreANewVersion) {
  makeFile("a", "x");
  startHost();
  const IndexRow before = row("a");
  makeFile("a", "longer");
  ASSERT_TRUE(reachesVersion("a", before.version + 1));
  EXPECT_EQ(row("a").ulid, before.ulid);
  EXPECT_TRUE(eventually([&] { return row("a").size == 6; }));
}

TEST_F(HostFollowTest, AFileThatStaysOpenIsFollowedToo) {
  makeFile("a", "");
  startHost();
  std::ofstream out(inRoot("a"), std::ios::app);
  out << "more" << std::flush;
  EXPECT_TRUE(eventually([&] { return row("a").size == 4; }));
}

TEST_F(HostFollowTest, RenamesAndMovesKeepTheIdentifier) {
  makeFolder("d");
  makeFile("a", "x");
  startHost();
  const std::string ulid = row("a").ulid;
  fs::rename(inRoot("a"), inRoot("b"));
  ASSERT_TRUE(becomes({"b", "d/"}));
  EXPECT_EQ(row("b").ulid, ulid);
  fs::rename(inRoot("b"), inRoot("d/c"));
  ASSERT_TRUE(becomes({"d/", "d/c"}));
  EXPECT_EQ(row("d/c").ulid, ulid);
  EXPECT_EQ(row("d/c").version, 1);
}

TEST_F(HostFollowTest, AMovedFolderIsStillFollowed) {
  makeFolder("from/sub");
  makeFolder("to");
  makeFile("from/sub/a", "x");
  startHost();
  const std::string ulid = row("from/sub/a").ulid;
  fs::rename(inRoot("from/sub"), inRoot("to/sub"));
  ASSERT_TRUE(becomes({"from/", "to/", "to/sub/", "to/sub/a"}));
  EXPECT_EQ(row("to/sub/a").ulid, ulid);
  makeFile("to/sub/b", "x");
  EXPECT_TRUE(becomes({"from/", "to/", "to/sub/", "to/sub/a", "to/sub/b"}));
}

TEST_F(HostFollowTest, WhatIsMovedOutIsGoneAndNoLongerFollowed) {
  makeFolder("d");
  startHost();
  fs::rename(inRoot("d"), directory_.file("outside"));
  ASSERT_TRUE(becomes({}));
  writeFile(directory_.file("outside") + "/late", "x");
  makeFile("sign", "x");
  EXPECT_TRUE(becomes({"sign"}));
}

TEST_F(HostFollowTest, AFolderMovedInArrivesWhole) {
  const std::string outside = directory_.file("outside");
  fs::create_directories(outside + "/sub");
  writeFile(outside + "/sub/a", "x");
  startHost();
  fs::rename(outside, inRoot("d"));
  EXPECT_TRUE(becomes({"d/", "d/sub/", "d/sub/a"}));
}

TEST_F(HostFollowTest, FoldersThatChangePlacesWithTheirParents) {
  makeFolder("a/b");
  makeFile("a/b/f", "x");
  startHost();
  const std::string file = row("a/b/f").ulid;
  fs::rename(inRoot("a/b"), inRoot("b"));
  fs::rename(inRoot("a"), inRoot("b/a"));
  ASSERT_TRUE(becomes({"b/", "b/a/", "b/f"}));
  EXPECT_EQ(row("b/f").ulid, file);
}

TEST_F(HostFollowTest, AnEditorThatSavesByRenamingChangesTheFileItself) {
  makeFile("a.txt", "old");
  startHost();
  const IndexRow before = row("a.txt");
  makeFile("a.txt.tmp", "newer");
  fs::rename(inRoot("a.txt.tmp"), inRoot("a.txt"));
  ASSERT_TRUE(reachesVersion("a.txt", 2));
  ASSERT_TRUE(becomes({"a.txt"}));
  EXPECT_EQ(row("a.txt").ulid, before.ulid);
  EXPECT_EQ(row("a.txt").size, 5);
}

TEST_F(HostFollowTest, AnEditorThatMovesTheOldContentsAsideChangesTheFileItself) {
  makeFile("a.txt", "old");
  startHost();
  const IndexRow before = row("a.txt");
  fs::rename(inRoot("a.txt"), inRoot("a.txt~"));
  makeFile("a.txt", "newer");
  ASSERT_TRUE(becomes({"a.txt", "a.txt~"}));
  ASSERT_TRUE(reachesVersion("a.txt", 2));
  EXPECT_EQ(row("a.txt").ulid, before.ulid);
}

TEST_F(HostFollowTest, AFileInThePlaceOfAFolderIsAnotherItem) {
  makeFolder("a");
  startHost();
  const std::string folder = row("a").ulid;
  fs::remove(inRoot("a"));
  makeFile("a", "x");
  ASSERT_TRUE(becomes({"a"}));
  EXPECT_NE(row("a").ulid, folder);
}

TEST_F(HostFollowTest, TheHostsOwnWritesAreCountedOnce) {
  startHost();
  const std::string ulid = create("a", "x")["ulid"];
  ask({{"op", "modify"}, {"ulid", ulid}, {"is_folder", false}, {"path", stage("y")}});
  // Once this is seen, the events of the writes before it have been looked at, too.
  makeFile("sign", "x");
  ASSERT_TRUE(becomes({"a", "sign"}));
  EXPECT_EQ(row("a").version, 2);
}

TEST_F(HostFollowTest, ThousandsOfFilesInOneGo) {
  startHost();
  for (int i = 0; i < 3000; ++i)
    makeFile("f" + std::to_string(i), "x");
  EXPECT_TRUE(eventually([&] { return rows().size() == 3000; }));
}

TEST_F(HostFollowTest, LostEventsAreMadeUpFor) {
  makeFolder("busy");
  startHost();
  {
    // More events than the system keeps for a watcher, faster than one can look at each.
    const std::string one = inRoot("busy/one");
    const std::string two = inRoot("busy/two");
    writeFile(one, "x");
    for (int i = 0; i < 20'000; ++i) {
      ASSERT_EQ(::rename(one.c_str(), two.c_str()), 0);
      ASSERT_EQ(::rename(two.c_str(), one.c_str()), 0);
    }
  }
  makeFile("end", "x");
  EXPECT_TRUE(becomes({"busy/", "busy/one", "end"}));
}

TEST_F(HostFollowTest, ARootThatIsMovedAwayEmptiesNothing) {
  makeFile("a", "x");
  startHost();
  const std::string ulid = row("a").ulid;
  const std::string aside = directory_.file("aside");
  fs::rename(root_, aside);
  fs::remove(aside + "/a");
  EXPECT_EQ(kindOf(ask({{"op", "fetch"}, {"ulid", ulid}})), "network");
  EXPECT_THAT(paths(), ElementsAre("a"));
}

TEST_F(HostFollowTest, AFolderAndANewOneOfItsFormerNameAreBothFollowed) {
  makeFolder("z");
  startHost();
  fs::rename(inRoot("z"), inRoot("a"));
  makeFolder("z");
  ASSERT_TRUE(becomes({"a/", "z/"}));
  makeFile("a/new", "x");
  makeFile("z/new", "x");
  EXPECT_TRUE(becomes({"a/", "a/new", "z/", "z/new"}));
}

// What goes wrong for a while loses no change that was made meanwhile.
class HostTroubleTest : public HostTest {
 protected:
  void TearDown() override {
    stopHost();
    if (mounted_) ::umount2(container_.c_str(), MNT_DETACH);
  }
  bool becomes(const Paths& expected) {
    return eventually([&] { return paths() == expected; });
  }
  bool isTold(const std::string& words) {
    return eventually([&] {
      const auto lines = log_.lines();
      return std::any_of(lines.begin(), lines.end(), [&](const LogLine& line) {
        return line.message.find(words) != std::string::npos;
      });
    });
  }
  // Puts the container on a small file system; false where that is not allowed.
  bool makeSmallContainer() {
    fs::create_directory(container_);
    mounted_ = ::mount("tulo-test", container_.c_str(), "tmpfs", 0, "size=1m,mode=700") == 0;
    return mounted_;
  }

  const LogRecorder log_;
  bool mounted_ = false;
};

TEST_F(HostTroubleTest, ARootThatComesBackIsLookedAtAgain) {
  makeFile("a", "x");
  makeFolder("d");
  startHost();
  const std::string aside = directory_.file("aside");
  fs::rename(root_, aside);
  writeFile(aside + "/b", "x");
  writeFile(aside + "/d/c", "x");
  fs::remove(aside + "/a");
  ASSERT_TRUE(isTold("has been moved or removed"));
  fs::rename(aside, root_);
  EXPECT_TRUE(becomes({"b", "d/", "d/c"}));
  makeFile("d/later", "x");
  EXPECT_TRUE(becomes({"b", "d/", "d/c", "d/later"}));
}

TEST_F(HostTroubleTest, ADiskOfTheIndexThatIsFullForAWhileLosesNothing) {
  if (!makeSmallContainer()) GTEST_SKIP() << "mounting a small file system needs root";
  makeFile("before", "x");
  startHost();
  std::ofstream filler(inContainer("filler"));
  while (filler << std::string(4096, 'x') << std::flush) {
  }
  filler.close();
  for (int i = 0; i < 300; ++i)
    makeFile("f" + std::to_string(i), "x");
  fs::remove(inRoot("before"));
  ASSERT_TRUE(isTold("following changes in"));
  fs::remove(inContainer("filler"));
  EXPECT_TRUE(eventually([&] { return rows().size() == 300; })) << rows().size();
}

// A host without descriptors, in this very process.
class Shortage {
 public:
  Shortage() {
    ::getrlimit(RLIMIT_NOFILE, &before_);
    // No more than the three that every program has; with fewer nothing could be waited for.
    const rlimit none{3, before_.rlim_max};
    ::setrlimit(RLIMIT_NOFILE, &none);
  }
  ~Shortage() { ::setrlimit(RLIMIT_NOFILE, &before_); }
  Shortage(const Shortage&) = delete;
  Shortage& operator=(const Shortage&) = delete;

 private:
  rlimit before_{};
};

TEST_F(HostTroubleTest, AShortageOfDescriptorsIsNotTakenForAbsence) {
  makeFolder("d");
  makeFile("d/a", "x");
  makeFile("b", "x");
  startHost();
  const std::string a = row("d/a").ulid;
  const std::string b = row("b").ulid;
  {
    const Shortage shortage;
    // Neither needs a descriptor.
    ASSERT_EQ(::rename(inRoot("d/a").c_str(), inRoot("d/renamed").c_str()), 0);
    ASSERT_EQ(::truncate(inRoot("b").c_str(), 7), 0);
    ASSERT_EQ(::mkdir(inRoot("new").c_str(), 0700), 0);
    ASSERT_TRUE(isTold("cannot be read, and what is known of it stays"))
        << testing::PrintToString(log_.lines());
  }
  ASSERT_TRUE(becomes({"b", "d/", "d/renamed", "new/"}));
  EXPECT_EQ(row("d/renamed").ulid, a);
  EXPECT_EQ(row("b").ulid, b);
  EXPECT_TRUE(eventually([&] { return row("b").size == 7; }));
  makeFile("new/file", "x");
  EXPECT_TRUE(becomes({"b", "d/", "d/renamed", "new/", "new/file"}));
}

// The same, with the host down meanwhile.
class HostRestartTest : public HostTest {
 protected:
  void restartAfter(const std::function<void()>& changes) {
    stopHost();
    changes();
    startHost();
  }
};

TEST_F(HostRestartTest, KeepsIdentifiersAndVersions) {
  makeFolder("d");
  makeFile("d/a", "x");
  startHost();
  const auto before = rows();
  restartAfter([] {});
  const auto after = rows();
  EXPECT_EQ(after.at("d").ulid, before.at("d").ulid);
  EXPECT_EQ(after.at("d/a").ulid, before.at("d/a").ulid);
  EXPECT_EQ(after.at("d/a").version, 1);
}

TEST_F(HostRestartTest, NoticesChangedContents) {
  makeFile("a", "x");
  startHost();
  restartAfter([&] { makeFile("a", "longer"); });
  EXPECT_EQ(row("a").version, 2);
  EXPECT_EQ(row("a").size, 6);
}

TEST_F(HostRestartTest, NoticesRenamesAndMoves) {
  makeFolder("from");
  makeFile("from/a", "x");
  makeFile("b", "x");
  startHost();
  const std::string folder = row("from").ulid;
  const std::string a = row("from/a").ulid;
  const std::string b = row("b").ulid;
  restartAfter([&] {
    fs::rename(inRoot("from"), inRoot("to"));
    fs::rename(inRoot("b"), inRoot("to/c"));
  });
  EXPECT_THAT(paths(), ElementsAre("to/", "to/a", "to/c"));
  EXPECT_EQ(row("to").ulid, folder);
  EXPECT_EQ(row("to/a").ulid, a);
  EXPECT_EQ(row("to/c").ulid, b);
  EXPECT_EQ(row("to/c").version, 1);
}

TEST_F(HostRestartTest, NoticesWhatIsGoneAndWhatIsNew) {
  makeFolder("d");
  makeFile("d/a", "x");
  startHost();
  const std::string old = row("d/a").ulid;
  restartAfter([&] {
    fs::remove_all(inRoot("d"));
    makeFile("new", "x");
  });
  EXPECT_THAT(paths(), ElementsAre("new"));
  EXPECT_GT(row("new").ulid, old) << "identifiers go up over restarts";
}

TEST_F(HostRestartTest, ANewFileIsNotTakenForADeletedOneOfTheSameInode) {
  makeFile("a", "x");
  startHost();
  const std::string old = row("a").ulid;
  restartAfter([&] {
    fs::remove(inRoot("a"));
    // On most file systems one of these gets the inode that has become free.
    for (int i = 0; i < 20; ++i)
      makeFile("new" + std::to_string(i), "x");
  });
  for (const auto& [path, item] : rows())
    EXPECT_NE(item.ulid, old) << path;
}

// 0 if a host that may not read "d" starts and keeps "d/a"; in a process of its own, which gives up
// root's right to read everything.
int statusOfUnprivilegedHost(const host::HostOptions& options) {
  constexpr uid_t nobody = 65534;
  if (::geteuid() == 0 &&
      (::setgroups(0, nullptr) != 0 || ::setresuid(nobody, nobody, nobody) != 0)) {
    return 2;
  }
  host::Host host(options);
  host.start();
  host.stop();
  return IndexReader(options.container + "/state.db").rows().contains("d/a") ? 0 : 1;
}

TEST_F(HostRestartTest, AFolderThatCannotBeReadLosesNothing) {
  makeFolder("d");
  makeFile("d/a", "x");
  startHost();
  stopHost();
  ASSERT_EQ(::chmod(inRoot("d").c_str(), 0), 0);
  ASSERT_EQ(::chmod(directory_.path().c_str(), 0755), 0);
  const std::string everything = "chown -R nobody " + directory_.path();
  if (::geteuid() == 0) {
    ASSERT_EQ(std::system(everything.c_str()), 0);
  }
  const pid_t pid = ::fork();
  if (pid == 0) ::_exit(statusOfUnprivilegedHost(options()));
  int status = 0;
  ASSERT_EQ(::waitpid(pid, &status, 0), pid);
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
  ::chmod(inRoot("d").c_str(), 0700);
}

TEST_F(HostRestartTest, UnfinishedWorkIsCleared) {
  makeFolder(".tulo-host/01ARYZ6S410000000000000000");
  makeFile(".tulo-host/half", "x");
  startHost();
  EXPECT_THAT(paths(), IsEmpty());
  EXPECT_FALSE(fs::exists(inRoot(".tulo-host")));
}

}  // namespace
}  // namespace tulo::test
