#include "platform/Progress.h"

#include <gtest/gtest.h>

#include <thread>

namespace tulo::platform {
namespace {

TEST(ProgressTest, StartsWithNothingDoneAndNotCancelled) {
  const auto progress = Progress::withTotalUnitCount(12);
  EXPECT_EQ(progress->totalUnitCount(), 12);
  EXPECT_EQ(progress->completedUnitCount(), 0);
  EXPECT_FALSE(progress->isCancelled());
}

TEST(ProgressTest, CancellingChangesNoCount) {
  const auto progress = Progress::withTotalUnitCount(3);
  progress->setCompletedUnitCount(2);
  progress->cancel();
  progress->cancel();
  EXPECT_TRUE(progress->isCancelled());
  EXPECT_EQ(progress->completedUnitCount(), 2);
  EXPECT_EQ(progress->totalUnitCount(), 3);
}

TEST(ProgressTest, IsAdvancedAndReadOnDifferentThreads) {
  const auto progress = Progress::withTotalUnitCount(1000);
  std::thread worker([&] {
    for (int unit = 1; unit <= 1000; ++unit)
      progress->setCompletedUnitCount(unit);
  });
  std::int64_t last = 0;
  while (last < 1000) {
    const std::int64_t now = progress->completedUnitCount();
    ASSERT_GE(now, last);
    last = now;
  }
  worker.join();
}

}  // namespace
}  // namespace tulo::platform
