#include "host/folder/Watcher.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <mutex>

#include "host/base/Files.h"
#include "tests/support/Eventually.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/TemporaryDirectory.h"

namespace tulo::host {
namespace {

class WatcherTest : public testing::Test {
 protected:
  void start(Followed first = Followed::all) {
    watcher_.start({[this](const std::set<Watcher::Change>& changes) {
                      const std::lock_guard lock(mutex_);
                      seen_.insert(changes.begin(), changes.end());
                      return changed_.load();
                    },
                    [this] {
                      ++lost_;
                      if (onLost_) onLost_();
                      return lost_ < failures_ ? Followed::failed : Followed::all;
                    },
                    [this] {
                      ++unread_;
                      return unread_ < failures_ ? Followed::partly : Followed::all;
                    }},
                   first);
  }
  bool sees(const Watcher::Change& change) {
    return test::eventually([&] {
      const std::lock_guard lock(mutex_);
      return seen_.contains(change);
    });
  }

  const test::LogRecorder log_;
  const HostLog hostLog_{false};
  const test::TemporaryDirectory directory_;
  std::mutex mutex_;
  std::set<Watcher::Change> seen_;
  std::atomic<int> lost_ = 0;
  std::atomic<int> unread_ = 0;
  // What the callbacks answer: the one for changes always, the others until the last of so many.
  std::atomic<Followed> changed_ = Followed::all;
  std::atomic<int> failures_ = 0;
  std::function<void()> onLost_;
  Watcher watcher_{hostLog_};
};

TEST_F(WatcherTest, TellsTheFolderAndTheEntry) {
  const FileDescriptor folder = openFolderPath(directory_.path());
  watcher_.watch("F", folder.get());
  start();
  test::writeFile(directory_.file("a"), "x");
  EXPECT_TRUE(sees({"F", "a"}));
  EXPECT_EQ(lost_, 0);
}

TEST_F(WatcherTest, AForgottenFolderIsToldOfNoMore) {
  const FileDescriptor folder = openFolderPath(directory_.path());
  watcher_.watch("F", folder.get());
  start();
  watcher_.forget("F");
  watcher_.forget("never watched");
  test::writeFile(directory_.file("a"), "x");
  watcher_.watch("G", folder.get());
  test::writeFile(directory_.file("b"), "x");
  ASSERT_TRUE(sees({"G", "b"}));
  const std::lock_guard lock(mutex_);
  EXPECT_EQ(seen_.count({"F", "a"}), 0U);
}

TEST_F(WatcherTest, WhereItCannotWatchItAsksForALookAtEverythingNowAndThen) {
  watcher_.setRescanInterval(std::chrono::milliseconds(5));
  constexpr int noFolder = -1;
  onLost_ = [&] { watcher_.watch("F", noFolder); };
  start();
  watcher_.watch("F", noFolder);
  watcher_.watch("G", noFolder);
  EXPECT_TRUE(test::eventually([&] { return lost_ >= 3; }));
  watcher_.stop();
  ASSERT_EQ(log_.lines().size(), 1U) << "said once";
  EXPECT_EQ(log_.lines()[0].level, "error");
}

TEST_F(WatcherTest, ALimitThatIsLiftedIsOver) {
  const FileDescriptor folder = openFolderPath(directory_.path());
  watcher_.setRescanInterval(std::chrono::milliseconds(5));
  onLost_ = [&] { watcher_.watch("F", folder.get()); };
  start();
  constexpr int noFolder = -1;
  watcher_.watch("F", noFolder);
  ASSERT_TRUE(test::eventually([&] { return log_.lines().size() == 2; }));
  EXPECT_EQ(log_.lines()[1].message, "all folders are watched again");
  test::writeFile(directory_.file("a"), "x");
  EXPECT_TRUE(sees({"F", "a"}));
  watcher_.watch("G", noFolder);
  EXPECT_TRUE(test::eventually([&] { return log_.lines().size() >= 3; })) << "said anew";
}

TEST_F(WatcherTest, AFailureMakesItAskForALookAtEverythingUntilThatSucceeds) {
  const FileDescriptor folder = openFolderPath(directory_.path());
  watcher_.watch("F", folder.get());
  changed_ = Followed::failed;
  failures_ = 3;
  start();
  test::writeFile(directory_.file("a"), "x");
  EXPECT_TRUE(test::eventually([&] { return lost_ == 3; }));
  changed_ = Followed::all;
  test::writeFile(directory_.file("b"), "x");
  EXPECT_TRUE(sees({"F", "b"}));
  EXPECT_EQ(lost_, 3) << "it is over";
}

TEST_F(WatcherTest, WhatCouldNotBeReadIsAskedForUntilItCould) {
  failures_ = 2;
  start(Followed::partly);
  EXPECT_TRUE(test::eventually([&] { return unread_ == 2; }));
  EXPECT_EQ(lost_, 0);
}

TEST_F(WatcherTest, SomebodyElseMayHaveLostSomething) {
  start();
  watcher_.lookAgain();
  EXPECT_TRUE(test::eventually([&] { return lost_ == 1; }));
}

TEST_F(WatcherTest, StopsWithoutHavingStarted) {
  watcher_.stop();
}

}  // namespace
}  // namespace tulo::host
