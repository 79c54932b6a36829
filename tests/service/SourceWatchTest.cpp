#include <filesystem>

#include "service/SourceWatch.h"

#include <gtest/gtest.h>

#include "service/Database.h"
#include "tests/support/Eventually.h"
#include "tests/support/TemporaryDirectory.h"

namespace tulo::test {
namespace {

class SourceWatchTest : public ::testing::Test {
 protected:
  std::unique_ptr<Connection> openHost(const char* journal = "WAL") {
    auto host = std::make_unique<Connection>(directory.file("state.db"), Connection::Mode::create);
    host->execute(std::string("PRAGMA journal_mode=") + journal +
                  "; CREATE TABLE IF NOT EXISTS t (x)");
    return host;
  }

  TemporaryDirectory directory;
  SourceWatch watch{{directory.path(), "state.db"}};
};

TEST_F(SourceWatchTest, TellsWhetherTheSourceIsThere) {
  EXPECT_FALSE(watch.present());
  const auto host = openHost();
  EXPECT_TRUE(watch.present());
}

TEST_F(SourceWatchTest, EveryCommitChangesTheFingerprint) {
  for (const char* journal : {"WAL", "DELETE", "TRUNCATE"}) {
    const auto host = openHost(journal);
    std::string last = watch.fingerprint();
    for (int i = 0; i < 5; ++i) {
      host->execute("INSERT INTO t VALUES (1)");
      std::string now = watch.fingerprint();
      EXPECT_NE(now, last) << journal;
      last = std::move(now);
    }
  }
}

TEST_F(SourceWatchTest, ReadingChangesNothing) {
  const auto host = openHost();
  host->execute("INSERT INTO t VALUES (1)");
  const std::string before = watch.fingerprint();
  for (int i = 0; i < 3; ++i) {
    Connection reader(directory.file("state.db"), Connection::Mode::readOnly);
    EXPECT_EQ(reader.integer("SELECT count(*) FROM t"), 1);
  }
  EXPECT_EQ(watch.fingerprint(), before);
  EXPECT_FALSE(watch.publishedSince());
}

TEST_F(SourceWatchTest, APublishedCommitIsSeenAtAGlance) {
  const auto host = openHost();
  host->execute("INSERT INTO t VALUES (1)");
  watch.fingerprint();
  EXPECT_FALSE(watch.publishedSince());
  host->execute("INSERT INTO t VALUES (2)");
  EXPECT_TRUE(watch.publishedSince());
}

TEST_F(SourceWatchTest, ANotificationFollowsACommit) {
  const auto host = openHost();
  std::string last = watch.fingerprint();
  std::atomic<int> changes = 0;
  watch.start([&] {
    if (watch.fingerprint() != last) ++changes;
  });
  host->execute("INSERT INTO t VALUES (1)");
  EXPECT_TRUE(eventually([&] { return changes > 0; }));
  watch.stop();
}

TEST_F(SourceWatchTest, ADirectoryThatComesLaterIsNoticed) {
  SourceWatch late({directory.file("container"), "state.db"});
  std::atomic<bool> seen = false;
  late.start([&] {
    if (late.present()) seen = true;
  });
  std::filesystem::create_directory(directory.file("container"));
  writeFile(directory.file("container") + "/state.db", "x");
  EXPECT_TRUE(eventually([&] { return seen.load(); }));
}

}  // namespace
}  // namespace tulo::test
