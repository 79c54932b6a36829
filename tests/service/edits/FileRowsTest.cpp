#include "service/edits/FileRows.h"

#include <sys/stat.h>

#include "tests/service/support/FilesFixture.h"

namespace tulo::test {
namespace {

class FileRowsTest : public FilesFixture {};

TEST_F(FileRowsTest, SizesAreWhatTheFilesSayAfterACrash) {
  const NodeId id = makeFile("a", "hello");
  // Written, and not noted in the row before the service was killed.
  writeFile(engine->store().path(row(id)->content), "hello, world");
  reopen();
  EXPECT_EQ(row(id)->size, 12);
}

TEST_F(FileRowsTest, EachWriteMakesTheBackgroundForceTheContentsAgain) {
  const NodeId id = makeFile("a", "hello");
  engine->housekeepingStep();
  EXPECT_TRUE(isDurable(row(id)->content));
  write(id, "again");
  EXPECT_FALSE(isDurable(row(id)->content));
}

TEST_F(FileRowsTest, TheRowSaysWhatTheFileSays) {
  const NodeId id = makeFile("a", "");
  struct stat status = {};
  status.st_size = 7;
  status.st_blocks = 16;
  status.st_mtim = {.tv_sec = 1'234'567'890, .tv_nsec = 42};
  const std::int64_t used = engine->store().room().used();
  clock += milliseconds(300);
  engine->replica().write(Durability::eventual, [&](ReplicaWriter& writer) {
    fileRows::noteWritten(writer, parts(), id, writer.node(id)->content, status);
  });
  EXPECT_EQ(row(id)->size, 7);
  EXPECT_EQ(row(id)->blocks, 16);
  EXPECT_EQ(row(id)->modified.whole, atSecond(1'234'567'890));
  EXPECT_EQ(row(id)->modified.beyond, nanoseconds(42));
  EXPECT_EQ(engine->store().room().used(), used + 16 * 512);
  EXPECT_EQ(change(id)->standing.due(), clock + kQuiet);
}

TEST_F(FileRowsTest, NothingIsNotedOfContentsThatAreTheNodesNoLonger) {
  const NodeId id = makeFile("a", "hello");
  struct stat status = {};
  status.st_size = 99;
  engine->replica().write(Durability::eventual, [&](ReplicaWriter& writer) {
    fileRows::noteWritten(writer, parts(), id, kNoContent, status);
  });
  EXPECT_EQ(row(id)->size, 5);
}

}  // namespace
}  // namespace tulo::test
