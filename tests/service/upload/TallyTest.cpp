#include "service/upload/Tally.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace tulo::test {
namespace {

TEST(TallyTest, CountsEachKindByItself) {
  Tally tally;
  EXPECT_EQ(tally.counts().sent, 0U);
  tally.sent();
  tally.sent();
  tally.failed("first");
  tally.conflict();
  const Tally::Counts counts = tally.counts();
  EXPECT_EQ(counts.sent, 2U);
  EXPECT_EQ(counts.failures, 1U);
  EXPECT_EQ(counts.conflicts, 1U);
}

TEST(TallyTest, TheLastFailureIsTheOneThatIsTold) {
  Tally tally;
  EXPECT_TRUE(tally.counts().lastError.empty());
  tally.failed("first");
  tally.failed("second");
  tally.sent();
  EXPECT_EQ(tally.counts().lastError, "second");
  EXPECT_EQ(tally.counts().failures, 2U);
}

TEST(TallyTest, NothingIsMissedWhenManyCountAtOnce) {
  constexpr std::uint64_t each = 1000;
  Tally tally;
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&tally] {
      for (std::uint64_t count = 0; count < each; ++count)
        tally.sent();
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_EQ(tally.counts().sent, 4 * each);
}

}  // namespace
}  // namespace tulo::test
