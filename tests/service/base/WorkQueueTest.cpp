#include "service/base/WorkQueue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <vector>

#include "tests/support/Gate.h"

namespace tulo::test {
namespace {

TEST(WorkQueueTest, RunsWhatItIsGivenInOrderOfArrival) {
  std::vector<int> done;
  WorkQueue queue(1);
  for (int i = 0; i < 50; ++i)
    EXPECT_TRUE(queue.async([&done, i] { done.push_back(i); }));
  queue.stop();
  ASSERT_EQ(done.size(), 50U);
  for (int i = 0; i < 50; ++i)
    EXPECT_EQ(done[static_cast<std::size_t>(i)], i);
}

TEST(WorkQueueTest, WorkDoesNotWaitForOtherWorkWhileAThreadIsFree) {
  Gate second;
  bool met = false;
  WorkQueue queue(2);
  queue.async([&] { met = second.wait(); });
  queue.async([&] { second.open(); });
  queue.stop();
  EXPECT_TRUE(met);
}

TEST(WorkQueueTest, StoppingRunsWhatIsQueuedAndTakesNothingMore) {
  Gate begun;
  Gate go;
  std::atomic<int> done = 0;
  WorkQueue queue(1);
  queue.async([&] {
    begun.open();
    go.wait();
  });
  queue.async([&] { ++done; });
  ASSERT_TRUE(begun.wait());
  std::thread stopper([&] { queue.stop(); });
  EXPECT_TRUE(eventually([&] { return !queue.async([] {}); }));
  go.open();
  stopper.join();
  EXPECT_EQ(done, 1);
}

}  // namespace
}  // namespace tulo::test
