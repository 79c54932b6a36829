#include "service/replica/LogForcer.h"

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <thread>
#include <vector>

#include "sqlite/DatabaseError.h"
#include "tests/support/TemporaryDirectory.h"

namespace tulo::test {
namespace {

class LogForcerTest : public ::testing::Test {
 protected:
  LogForcerTest() { writeFile(log, "log"); }

  TemporaryDirectory directory;
  const std::string log = directory.file("log");
  std::atomic<std::uint64_t> commits = 0;
  LogForcer forcer{log, [this] { return commits.load(); }};
};

TEST_F(LogForcerTest, ATurnThatBeganEarlierDoesNotCount) {
  const std::uint64_t first = forcer.begin();
  forcer.end(first);
  EXPECT_GT(forcer.begin(), first);
}

TEST_F(LogForcerTest, ATurnThatIsDoneIsNotWaitedFor) {
  const std::uint64_t turn = forcer.begin();
  forcer.end(turn);
  forcer.end(turn);
  forcer.force();
  forcer.end(turn);
}

TEST_F(LogForcerTest, AFileThatCannotBeForcedIsAnErrorOfThatTurn) {
  std::filesystem::remove(log);
  EXPECT_THROW(forcer.force(), sqlite::DatabaseError);
  const std::uint64_t turn = forcer.begin();
  EXPECT_THROW(forcer.end(turn), sqlite::DatabaseError);
  writeFile(log, "log");
  EXPECT_NO_THROW(forcer.force());
}

TEST_F(LogForcerTest, WithoutACommitNothingIsForcedASecondTime) {
  commits = 1;
  std::filesystem::remove(log);
  EXPECT_THROW(forcer.forceIfCommitted(), sqlite::DatabaseError);
  EXPECT_NO_THROW(forcer.forceIfCommitted());
  commits = 2;
  EXPECT_THROW(forcer.forceIfCommitted(), sqlite::DatabaseError);
}

TEST_F(LogForcerTest, ManyWhoWaitAllComeThrough) {
  std::vector<std::thread> threads;
  std::atomic<int> through = 0;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([&, thread] {
      for (int i = 0; i < 100; ++i) {
        if (thread % 2 == 0) {
          forcer.force();
        } else {
          forcer.end(forcer.begin());
        }
        ++through;
      }
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_EQ(through, 400);
}

}  // namespace
}  // namespace tulo::test
