#include "platform/Dispatch.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <functional>

#include "tests/support/Eventually.h"
#include "tests/support/Gate.h"

namespace tulo::platform {
namespace {

using test::eventually;
using test::Gate;

int niceOfThisThread() {
  return getpriority(PRIO_PROCESS, static_cast<id_t>(syscall(SYS_gettid)));
}

long ioPriorityOfThisThread() {
  return syscall(SYS_ioprio_get, 1, 0);
}

template <typename Value>
Value measuredOn(QualityOfService quality, const std::function<Value()>& measure) {
  Gate done;
  Value value{};
  DispatchQueue::global(quality).async([&] {
    value = measure();
    done.open();
  });
  EXPECT_TRUE(done.wait());
  return value;
}

TEST(DispatchTest, GivesTheSameQueueEachTimeAndOneForEachQuality) {
  auto& user = DispatchQueue::global(QualityOfService::userInitiated);
  auto& utility = DispatchQueue::global(QualityOfService::utility);
  EXPECT_EQ(&user, &DispatchQueue::global(QualityOfService::userInitiated));
  EXPECT_EQ(&utility, &DispatchQueue::global(QualityOfService::utility));
  EXPECT_NE(&user, &utility);
}

TEST(DispatchTest, RunsWorkOnAnotherThread) {
  const auto caller = syscall(SYS_gettid);
  const std::function<long()> thread = [] { return syscall(SYS_gettid); };
  EXPECT_NE(measuredOn(QualityOfService::userInitiated, thread), caller);
  EXPECT_NE(measuredOn(QualityOfService::utility, thread), caller);
}

TEST(DispatchTest, UtilityWorkersRunAtLowerPriority) {
  const std::function<int()> nice = niceOfThisThread;
  EXPECT_EQ(measuredOn(QualityOfService::utility, nice), std::max(10, niceOfThisThread()));
  EXPECT_EQ(measuredOn(QualityOfService::userInitiated, nice), niceOfThisThread());
  const std::function<long()> ioPriority = ioPriorityOfThisThread;
  constexpr long lowestBestEffort = (2 << 13) | 7;
  EXPECT_EQ(measuredOn(QualityOfService::utility, ioPriority), lowestBestEffort);
}

// Threads inherit the priority of the thread that starts them.
TEST(DispatchTest, WorkersStartedFromUtilityWorkKeepTheirOwnPriority) {
  constexpr int more = 20;
  const int expected = niceOfThisThread();
  Gate release;
  std::atomic<int> running = 0;
  std::atomic<int> lowered = 0;
  DispatchQueue::global(QualityOfService::utility).async([&] {
    for (int item = 0; item < more; ++item) {
      DispatchQueue::global(QualityOfService::userInitiated).async([&] {
        if (niceOfThisThread() != expected) ++lowered;
        ++running;
        release.wait();
        --running;
      });
    }
  });
  EXPECT_TRUE(eventually([&] { return running == more; }));
  EXPECT_EQ(lowered, 0);
  release.open();
  EXPECT_TRUE(eventually([&] { return running == 0; }));
}

TEST(DispatchTest, QueuesDoNotWaitForEachOther) {
  Gate release;
  std::atomic<int> blocked = 0;
  for (int item = 0; item < 70; ++item) {
    DispatchQueue::global(QualityOfService::utility).async([&] {
      ++blocked;
      release.wait();
      --blocked;
    });
  }
  EXPECT_TRUE(eventually([&] { return blocked == 64; }));
  EXPECT_EQ(measuredOn<int>(QualityOfService::userInitiated, [] { return 7; }), 7);
  EXPECT_EQ(blocked, 64);
  release.open();
  EXPECT_EQ(measuredOn<int>(QualityOfService::utility, [] { return 8; }), 8);
  EXPECT_TRUE(eventually([&] { return blocked == 0; }));
}

}  // namespace
}  // namespace tulo::platform
