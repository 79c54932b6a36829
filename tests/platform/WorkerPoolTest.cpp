#include "platform/linux/WorkerPool.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

#include "tests/support/Eventually.h"
#include "tests/support/Gate.h"

namespace tulo::platform {
namespace {

using std::chrono::milliseconds;
using test::eventually;
using test::Gate;

WorkerPool::Options options(std::size_t maximumWorkers, milliseconds idleTime = test::patience) {
  WorkerPool::Options result;
  result.name = "test";
  result.maximumWorkers = maximumWorkers;
  result.idleTime = idleTime;
  return result;
}

TEST(WorkerPoolTest, HasNoWorkerBeforeThereIsWork) {
  const WorkerPool pool(options(4));
  EXPECT_EQ(pool.workerCount(), 0U);
}

TEST(WorkerPoolTest, RunsTheNextItemWhenAllButOneWorkerAreBlocked) {
  Gate release;
  std::atomic<int> blocked = 0;
  std::atomic<bool> ran = false;
  WorkerPool pool(options(64));
  for (int item = 0; item < 63; ++item) {
    pool.async([&] {
      ++blocked;
      release.wait();
    });
  }
  ASSERT_TRUE(eventually([&] { return blocked == 63; }));
  pool.async([&] { ran = true; });
  EXPECT_TRUE(eventually([&] { return ran.load(); }));
  release.open();
}

TEST(WorkerPoolTest, HoldsTheItemBeyondTheBoundUntilAWorkerIsFree) {
  Gate release;
  Gate releaseOne;
  std::atomic<int> blocked = 0;
  std::atomic<bool> ran = false;
  WorkerPool pool(options(64));
  pool.async([&] {
    ++blocked;
    releaseOne.wait();
  });
  for (int item = 0; item < 63; ++item) {
    pool.async([&] {
      ++blocked;
      release.wait();
    });
  }
  ASSERT_TRUE(eventually([&] { return blocked == 64; }));
  pool.async([&] { ran = true; });
  EXPECT_EQ(pool.workerCount(), 64U);
  EXPECT_FALSE(ran);
  releaseOne.open();
  EXPECT_TRUE(eventually([&] { return ran.load(); }));
  EXPECT_EQ(pool.workerCount(), 64U);
  release.open();
}

TEST(WorkerPoolTest, StartsNoThreadWhileAWorkerIsIdle) {
  WorkerPool pool(options(64));
  for (int item = 0; item < 100; ++item) {
    Gate done;
    pool.async([&] { done.open(); });
    ASSERT_TRUE(done.wait());
    ASSERT_TRUE(eventually([&] { return pool.idleCount() == 1; }));
  }
  EXPECT_EQ(pool.workerCount(), 1U);
}

TEST(WorkerPoolTest, EndsWorkersThatStayIdle) {
  Gate release;
  std::atomic<int> blocked = 0;
  WorkerPool pool(options(8, milliseconds(1)));
  for (int item = 0; item < 8; ++item) {
    pool.async([&] {
      ++blocked;
      release.wait();
    });
  }
  ASSERT_TRUE(eventually([&] { return blocked == 8; }));
  EXPECT_EQ(pool.workerCount(), 8U);
  release.open();
  EXPECT_TRUE(eventually([&] { return pool.workerCount() == 0; }));
  std::atomic<bool> ran = false;
  pool.async([&] { ran = true; });
  EXPECT_TRUE(eventually([&] { return ran.load(); }));
}

TEST(WorkerPoolTest, RunsEverythingBeforeItIsDestroyed) {
  std::atomic<int> ran = 0;
  {
    WorkerPool pool(options(3));
    for (int item = 0; item < 5000; ++item)
      pool.async([&] { ++ran; });
  }
  EXPECT_EQ(ran, 5000);
}

TEST(WorkerPoolTest, RunsWhatWorkItemsSubmitWhileItIsBeingDestroyed) {
  std::atomic<int> ran = 0;
  {
    WorkerPool pool(options(3));
    for (int item = 0; item < 100; ++item) {
      pool.async([&] { pool.async([&] { ++ran; }); });
    }
  }
  EXPECT_EQ(ran, 100);
}

TEST(WorkerPoolTest, RunsEverythingThatManyThreadsSubmit) {
  std::atomic<int> ran = 0;
  {
    WorkerPool pool(options(16, milliseconds(1)));
    std::vector<std::thread> submitters;
    for (int submitter = 0; submitter < 4; ++submitter) {
      submitters.emplace_back([&] {
        for (int item = 0; item < 1000; ++item)
          pool.async([&] { ++ran; });
      });
    }
    for (std::thread& submitter : submitters)
      submitter.join();
    EXPECT_TRUE(eventually([&] { return ran == 4000; }));
  }
  EXPECT_EQ(ran, 4000);
}

TEST(WorkerPoolTest, ReleasesAnItemBeforeItsWorkerIsIdle) {
  WorkerPool pool(options(1));
  auto held = std::make_shared<int>(1);
  const std::weak_ptr<int> observed = held;
  pool.async([held = std::move(held)] { EXPECT_EQ(*held, 1); });
  ASSERT_TRUE(eventually([&] { return pool.idleCount() == 1; }));
  EXPECT_TRUE(observed.expired());
}

TEST(WorkerPoolTest, PreparesEachWorkerOnItsOwnThread) {
  thread_local bool isPrepared = false;
  WorkerPool::Options prepared = options(4);
  prepared.prepareWorker = [] { isPrepared = true; };
  std::atomic<int> preparedRuns = 0;
  {
    WorkerPool pool(prepared);
    for (int item = 0; item < 50; ++item) {
      pool.async([&] { preparedRuns += isPrepared ? 1 : 0; });
    }
  }
  EXPECT_EQ(preparedRuns, 50);
  EXPECT_FALSE(isPrepared);
}

TEST(WorkerPoolDeathTest, AnExceptionThatLeavesAWorkItemEndsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(
      {
        WorkerPool pool(options(1));
        pool.async([] { throw std::runtime_error("escaped"); });
        Gate never;
        never.wait();
      },
      "");
}

}  // namespace
}  // namespace tulo::platform
