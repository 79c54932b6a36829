#include "service/replica/UnsentWork.h"

#include <filesystem>

#include "service/replica/ContentStore.h"
#include "tests/service/support/WritingFixture.h"

namespace tulo::test {
namespace {

namespace fs = std::filesystem;

class UnsentWorkTest : public WritingFixture {
 protected:
  // As a service that ended leaves it; returns where.
  std::string left() {
    engine->stop();
    engine.reset();
    return options.stateDirectory;
  }
};

TEST_F(UnsentWorkTest, WhatTheHostHasDoesNotCount) {
  list();
  EXPECT_EQ(unsentIn(left()), 0);
}

TEST_F(UnsentWorkTest, ChangesAndWhatExistsOnlyHereCount) {
  list();
  makeFile("a.txt", "text");
  EXPECT_EQ(unsentIn(left()), 1);
}

TEST_F(UnsentWorkTest, WhatCannotBeReadMayHoldSomething) {
  const std::string replica = left();
  for (const char* file : {"/replica.db-wal", "/replica.db-shm"})
    fs::remove(replica + file);
  writeFile(replica + "/replica.db", std::string(16384, 'x'));
  EXPECT_GT(unsentIn(replica), 0);
}

TEST_F(UnsentWorkTest, AnEmptyFolderHoldsNothing) {
  const TemporaryDirectory empty;
  EXPECT_EQ(unsentIn(empty.path()), 0);
}

TEST_F(UnsentWorkTest, ChangedFilesAreLaidOutAtTheirPlaces) {
  list();
  const NodeId folder = makeFolder("docs");
  makeFile("report.txt", "first", folder);
  makeFile("top.txt", "second");
  const std::string replica = left();
  const std::string to = replica + "/files";
  layOutUnsent(replica, to);
  EXPECT_EQ(readFile(to + "/docs/report.txt"), "first");
  EXPECT_EQ(readFile(to + "/top.txt"), "second");
  layOutUnsent(replica, to);
  EXPECT_EQ(readFile(to + "/top (2).txt"), "second") << "nothing is overwritten";
}

TEST_F(UnsentWorkTest, ALongNameLaidOutTwiceKeepsItsExtension) {
  list();
  makeFile(std::string(251, 'x') + ".txt", "text");
  const std::string replica = left();
  const std::string to = replica + "/files";
  layOutUnsent(replica, to);
  layOutUnsent(replica, to);
  EXPECT_EQ(readFile(to + '/' + std::string(247, 'x') + " (2).txt"), "text");
}

}  // namespace
}  // namespace tulo::test
