#include "service/listing/Sync.h"

#include <cerrno>
#include <future>
#include <vector>

#include "tests/service/support/EngineFixture.h"

namespace tulo::test {
namespace {

class SyncTest : public EngineFixture {};

TEST_F(SyncTest, OnceStoppedItAnswersThatItWasInterrupted) {
  engine->sync().stop();
  EXPECT_EQ(refresh(), EINTR);
  EXPECT_EQ(extension->listingCount(), 0U);
}

TEST_F(SyncTest, StoppingAnswersWhoeverWaits) {
  for (int i = 0; i < 20; ++i)
    extension->folder("f:" + std::to_string(i), std::to_string(i));
  ASSERT_EQ(refresh(), 0);
  engine->sync().start();
  std::vector<std::future<int>> answers;
  for (int i = 0; i < 20; ++i) {
    const auto done = std::make_shared<std::promise<int>>();
    answers.push_back(done->get_future());
    engine->sync().refresh(idOf("f:" + std::to_string(i)),
                           [done](int error) { done->set_value(error); });
  }
  engine->sync().stop();
  for (auto& answer : answers)
    EXPECT_EQ(answer.wait_for(std::chrono::seconds(0)), std::future_status::ready);
}

TEST_F(SyncTest, TheStatisticsSayWhatWasDone) {
  extension->file("i:1", "a.txt", "hello");
  refresh();
  commit();
  EXPECT_EQ(engine->sync().statistics().staleFolders, 1U);
  refresh();
  const Sync::Statistics statistics = engine->sync().statistics();
  EXPECT_EQ(statistics.generation, engine->sync().generation());
  EXPECT_EQ(statistics.listings, 2U);
  EXPECT_EQ(statistics.unchanged, 1U);
  EXPECT_EQ(statistics.staleFolders, 0U);
  EXPECT_EQ(statistics.lastError, 0);
}

}  // namespace
}  // namespace tulo::test
