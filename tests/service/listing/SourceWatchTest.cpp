#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include "service/listing/SourceWatch.h"

#include <gtest/gtest.h>

#include "sqlite/Connection.h"
#include "tests/support/Eventually.h"
#include "tests/support/TemporaryDirectory.h"

namespace tulo::test {
namespace {

// Whether this process has a lock on the file; only another process is told of it.
bool holdsLocks(const std::string& path) {
  const pid_t child = ::fork();
  if (child == 0) {
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    const int file = ::open(path.c_str(), O_RDWR);
    const bool asked = file >= 0 && ::fcntl(file, F_GETLK, &lock) == 0;
    ::_exit(!asked ? 2 : lock.l_type == F_UNLCK ? 0 : 1);
  }
  int status = -1;
  EXPECT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) < 2) << path;
  return WEXITSTATUS(status) == 1;
}

class SourceWatchTest : public ::testing::Test {
 protected:
  std::unique_ptr<sqlite::Connection> openHost(const char* journal = "WAL") {
    auto host = std::make_unique<sqlite::Connection>(directory.file("state.db"),
                                                     sqlite::Connection::Mode::create);
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
    sqlite::Connection reader(directory.file("state.db"), sqlite::Connection::Mode::readOnly);
    EXPECT_EQ(reader.integer("SELECT count(*) FROM t"), 1);
  }
  EXPECT_EQ(watch.fingerprint(), before);
  EXPECT_FALSE(watch.publishedSince());
}

TEST_F(SourceWatchTest, LookingLeavesTheReadersLocksAlone) {
  const auto host = openHost();
  host->execute("INSERT INTO t VALUES (1)");
  watch.fingerprint();
  sqlite::Connection reader(directory.file("state.db"), sqlite::Connection::Mode::readOnly);
  reader.execute("BEGIN; SELECT * FROM t");
  ASSERT_TRUE(holdsLocks(directory.file("state.db-shm")));
  for (int i = 0; i < 3; ++i)
    watch.fingerprint();
  EXPECT_TRUE(holdsLocks(directory.file("state.db-shm")));
}

TEST_F(SourceWatchTest, CommitsToADatabaseThatWasReplacedAreSeen) {
  for (int i = 0; i < 3; ++i) {
    const auto host = openHost();
    host->execute("INSERT INTO t VALUES (1)");
    watch.fingerprint();
    host->execute("INSERT INTO t VALUES (2)");
    EXPECT_TRUE(watch.publishedSince());
    // The last one that closes it takes the shared memory file away.
  }
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
