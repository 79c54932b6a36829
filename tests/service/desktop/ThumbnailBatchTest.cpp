#include "service/desktop/ThumbnailBatch.h"

#include <gtest/gtest.h>

#include <future>

#include "tests/support/Eventually.h"

namespace tulo::test {
namespace {

TEST(ThumbnailBatchTest, HasWhatCameUntilItsEnd) {
  ThumbnailBatch batch;
  batch.add("i:1", "one");
  batch.add("i:2", "two");
  batch.end();
  EXPECT_TRUE(batch.wait());
  EXPECT_EQ(batch.takeImages(), (ThumbnailBatch::Images{{"i:1", "one"}, {"i:2", "two"}}));
}

TEST(ThumbnailBatchTest, WaitsForTheEnd) {
  ThumbnailBatch batch;
  auto whole = std::async(std::launch::async, [&] { return batch.wait(); });
  EXPECT_EQ(whole.wait_for(std::chrono::milliseconds(20)), std::future_status::timeout);
  batch.end();
  ASSERT_EQ(whole.wait_for(patience), std::future_status::ready);
  EXPECT_TRUE(whole.get());
}

TEST(ThumbnailBatchTest, CancellingEndsTheWaitAndTheRequest) {
  ThumbnailBatch batch;
  const auto progress = platform::Progress::withTotalUnitCount(1);
  batch.setProgress(progress);
  batch.cancel();
  EXPECT_TRUE(progress->isCancelled());
  EXPECT_FALSE(batch.wait());
}

TEST(ThumbnailBatchTest, ARequestThatBeginsAfterTheEndIsCancelledAtOnce) {
  ThumbnailBatch batch;
  batch.cancel();
  const auto progress = platform::Progress::withTotalUnitCount(1);
  batch.setProgress(progress);
  EXPECT_TRUE(progress->isCancelled());
  batch.setProgress(nullptr);
}

}  // namespace
}  // namespace tulo::test
