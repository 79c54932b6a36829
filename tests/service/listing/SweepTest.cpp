#include "service/listing/Sweep.h"

#include <cerrno>

#include "tests/service/support/EngineFixture.h"

namespace tulo::test {
namespace {

using platform::NSFileProviderErrorCode;

class SweepTest : public EngineFixture {};

TEST_F(SweepTest, SweepsWhatTheKernelKnowsAndNothingElse) {
  for (const char* number : {"1", "2", "3"}) {
    extension->folder(std::string("f:") + number, number);
  }
  refresh();
  for (const char* number : {"1", "2", "3"})
    refresh(idOf(std::string("f:") + number));
  engine->folders().remembered(idOf("f:1"));
  engine->folders().remembered(idOf("f:3"));
  engine->folders().used(idOf("f:1"));
  commit();
  const std::size_t before = extension->listingCount();
  while (engine->sync().sweepStep()) {
  }
  // The root is always known.
  EXPECT_EQ(extension->listingCount() - before, 3U);
  EXPECT_EQ(engine->sync().freshness(idOf("f:1"), 0), Freshness::current);
  EXPECT_EQ(engine->sync().freshness(idOf("f:2"), 0), Freshness::older);
  EXPECT_EQ(engine->sync().statistics().staleFolders, 0U);
}

TEST_F(SweepTest, ListsInTheBackgroundWhatWasCommitted) {
  refresh();
  engine->sync().start();
  extension->file("i:1", "a.txt", "hello");
  commit();
  EXPECT_TRUE(eventually([&] { return names().contains("a.txt"); }));
  EXPECT_EQ(engine->sync().statistics().anchor, "anchor");
}

TEST_F(SweepTest, TriesAgainInTheBackgroundWhatFailed) {
  extension->setListingError(fileProviderError(NSFileProviderErrorCode::serverUnreachable));
  extension->file("i:1", "a.txt", "hello");
  EXPECT_EQ(refresh(), EHOSTDOWN);
  extension->setListingError(std::nullopt);
  engine->sync().start();
  EXPECT_TRUE(eventually([&] { return names().contains("a.txt"); }));
}

TEST_F(SweepTest, ARetryThatFailsAgainIsNoReasonToGoOnAtOnce) {
  extension->setListingError(fileProviderError(NSFileProviderErrorCode::serverUnreachable));
  while (engine->sync().sweepStep()) {
  }
  refresh();
  EXPECT_FALSE(engine->sync().sweepStep());
  EXPECT_EQ(engine->sync().statistics().lastError, EHOSTDOWN);
  extension->setListingError(std::nullopt);
  EXPECT_TRUE(engine->sync().sweepStep());
}

}  // namespace
}  // namespace tulo::test
