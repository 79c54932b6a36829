#include "service/upload/Scheduler.h"

#include "tests/service/support/UploadFixture.h"

namespace tulo::test {
namespace {

using platform::fileProviderError;
using platform::NSFileProviderErrorCode;

class SchedulerTest : public UploadFixture {};

TEST_F(SchedulerTest, ANewFileGoesUpOnceWithItsContentsAfterTheQuietTime) {
  const NodeId id = makeFile("a.txt", "hello");
  EXPECT_EQ(drain(), 0U);
  clock += kQuiet - milliseconds(1);
  EXPECT_EQ(drain(), 0U);
  clock += milliseconds(1);
  EXPECT_EQ(drain(), 1U);
  ASSERT_EQ(sent().size(), 1U);
  EXPECT_EQ(sent()[0].kind, Kind::create);
  EXPECT_EQ(sent()[0].contents, "hello");
  EXPECT_FALSE(change(id));
  EXPECT_EQ(row(id)->identifier, "new:1");
  EXPECT_EQ(row(id)->state, ContentState::downloaded);
  EXPECT_EQ(row(id)->contentVersion, "1");
}

TEST_F(SchedulerTest, AFileThatIsBeingWrittenIsNoPlaceholderAtTheHost) {
  const NodeId id = make("a.txt").entry.id;
  {
    OpenFile handle(engine->replica(), engine->openFiles(), engine->store(), id, row(id)->content,
                    0);
    handle.setWrites();
    const auto file = open(id);
    push();
    EXPECT_TRUE(sent().empty());
    EXPECT_EQ(file->write("late", 4, 0), 4);
    EXPECT_EQ(engine->files().settle(id), 0);
  }
  engine->files().released(id);
  push();
  ASSERT_EQ(sent().size(), 1U);
  EXPECT_EQ(sent()[0].contents, "late");
}

TEST_F(SchedulerTest, EachWriteBeginsTheQuietTimeAnew) {
  const NodeId id = makeFile("a.txt", "one");
  clock += kQuiet / 2;
  write(id, "two");
  clock += kQuiet / 2;
  EXPECT_EQ(drain(), 0U);
  push();
  ASSERT_EQ(sent().size(), 1U);
  EXPECT_EQ(sent()[0].contents, "two");
}

TEST_F(SchedulerTest, AFailureWaitsForItsPause) {
  const NodeId id = makeFile("a.txt", "hello");
  failOnce(fileProviderError(NSFileProviderErrorCode::insufficientQuota));
  push();
  const WallTime due = change(id)->standing.due();
  EXPECT_GT(due, clock);
  EXPECT_EQ(drain(), 0U);
  clock = due - milliseconds(1);
  EXPECT_EQ(drain(), 0U);
  clock = due;
  EXPECT_EQ(drain(), 1U);
  EXPECT_EQ(sent().size(), 2U);
}

TEST_F(SchedulerTest, NothingGoesUpUntilSomebodyHasSignedIn) {
  makeFile("a.txt", "hello");
  makeFile("b.txt", "hello");
  failOnce(fileProviderError(NSFileProviderErrorCode::notAuthenticated));
  push();
  EXPECT_EQ(sent().size(), 1U);
  EXPECT_TRUE(engine->uploader().statistics().paused);
  EXPECT_EQ(counts().attention, 0);
  engine->uploader().retry(false);
  drain();
  EXPECT_FALSE(engine->uploader().statistics().paused);
  EXPECT_EQ(hostContents("a.txt"), "hello");
  EXPECT_EQ(hostContents("b.txt"), "hello");
}

TEST_F(SchedulerTest, NothingIsSentWithoutAHost) {
  std::filesystem::remove(directory.file("fp.sock"));
  makeFile("a.txt", "hello");
  push();
  EXPECT_TRUE(sent().empty());
  EXPECT_EQ(counts().pending, 1);
  writeFile(directory.file("fp.sock"), "");
  drain();
  EXPECT_EQ(hostContents("a.txt"), "hello");
}

TEST_F(SchedulerTest, ChangesGoUpAfterARestart) {
  makeFile("a.txt", "hello");
  const NodeId edited = downloaded("i:1", "b.txt", "base");
  write(edited, "mine");
  reopen();
  push();
  EXPECT_EQ(hostContents("a.txt"), "hello");
  EXPECT_EQ(hostContents("b.txt"), "mine");
}

TEST_F(SchedulerTest, AClockThatWasAheadKeepsNothingBack) {
  clock += std::chrono::hours(24);
  makeFile("a.txt", "hello");
  clock -= std::chrono::hours(24);
  push();
  EXPECT_EQ(hostContents("a.txt"), "hello");
}

TEST_F(SchedulerTest, AClockThatWasAheadKeepsNothingBackAfterARestart) {
  clock += std::chrono::minutes(2);
  makeFile("a.txt", "hello");
  clock -= std::chrono::minutes(2);
  reopen();
  push();
  EXPECT_EQ(hostContents("a.txt"), "hello");
}

TEST_F(SchedulerTest, APauseThatAClockAheadBeganEndsWithIt) {
  makeFile("a.txt", "hello");
  clock += std::chrono::hours(24);
  failOnce(fileProviderError(NSFileProviderErrorCode::notAuthenticated));
  drain();
  clock -= std::chrono::hours(24);
  push();
  EXPECT_EQ(hostContents("a.txt"), "hello");
}

}  // namespace
}  // namespace tulo::test
