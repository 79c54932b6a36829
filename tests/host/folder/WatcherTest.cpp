#include "host/folder/Watcher.h"

#include <gtest/gtest.h>

#include <atomic>
#include <mutex>

#include "host/base/Files.h"
#include "tests/support/Eventually.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/TemporaryDirectory.h"

namespace tulo::host {
namespace {

class WatcherTest : public testing::Test {
 protected:
  void start() {
    watcher_.start({[this](const std::set<Watcher::Change>& changes) {
                      const std::lock_guard lock(mutex_);
                      seen_.insert(changes.begin(), changes.end());
                    },
                    [this] { ++lost_; }});
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
  start();
  constexpr int noFolder = -1;
  watcher_.watch("F", noFolder);
  watcher_.watch("G", noFolder);
  EXPECT_TRUE(test::eventually([&] { return lost_ >= 3; }));
  watcher_.stop();
  ASSERT_EQ(log_.lines().size(), 1U) << "said once";
  EXPECT_EQ(log_.lines()[0].level, "error");
}

TEST_F(WatcherTest, StopsWithoutHavingStarted) {
  watcher_.stop();
}

}  // namespace
}  // namespace tulo::host
