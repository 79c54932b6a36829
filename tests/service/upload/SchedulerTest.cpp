#include "service/upload/Scheduler.h"

#include <memory>
#include <optional>
#include <string>

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

// A program that has a file open for writing, all day.
class OpenAllDayTest : public UploadFixture {
 protected:
  void openFor(NodeId id) {
    handle.emplace(engine->replica(), engine->openFiles(), engine->store(), id, row(id)->content,
                   std::nullopt);
    handle->setWrites();
    file = open(id);
  }

  void put(const std::string& bytes, off_t offset) {
    EXPECT_EQ(file->write(bytes.data(), bytes.size(), offset), static_cast<ssize_t>(bytes.size()));
  }

  // Lets so many quiet times go by, and sends what is due.
  void pass(int quietTimes) {
    for (int i = 0; i < quietTimes; ++i)
      push();
  }

  std::optional<OpenFile> handle;
  std::shared_ptr<WritableFile> file;
};

TEST_F(OpenAllDayTest, WhatWasLeftAloneForAWhileGoesUp) {
  const NodeId id = downloaded("i:1", "a.odt", "base");
  openFor(id);
  put("first", 0);
  pass(29);
  EXPECT_TRUE(sent().empty());
  put("F", 0);
  pass(29);
  EXPECT_TRUE(sent().empty());
  pass(3);
  EXPECT_EQ(hostContents("a.odt"), "First");
  EXPECT_FALSE(change(id));
  put("second", 0);
  EXPECT_TRUE(change(id));
  pass(33);
  EXPECT_EQ(hostContents("a.odt"), "second");
  EXPECT_EQ(sent().size(), 2U);
  EXPECT_EQ(sent()[1].baseVersion, "2");
}

TEST_F(OpenAllDayTest, WhatIsWrittenMeanwhileDoesNotChangeWhatIsSentAndGoesUpLater) {
  const NodeId id = downloaded("i:1", "a.odt", std::string(100'000, 'a'));
  openFor(id);
  put("first", 0);
  // Asked for its contents, the host has the program write.
  extension->scriptMutation({.before = [&] {
    put("SECOND", 0);
    EXPECT_EQ(readFile(engine->store().path(change(id)->request.contents())).substr(0, 6),
              "firsta");
  }});
  pass(33);
  ASSERT_EQ(sent().size(), 1U);
  EXPECT_EQ(sent()[0].contents->substr(0, 6), "firsta");
  ASSERT_TRUE(change(id));
  EXPECT_TRUE(change(id)->hasContents());
  EXPECT_EQ(row(id)->state, ContentState::dirty);
  pass(33);
  EXPECT_EQ(hostContents("a.odt").substr(0, 7), "SECONDa");
  EXPECT_FALSE(change(id));
  // What was sent is gone, and counted no longer, once the program has looked at its file again.
  EXPECT_FALSE(handle->endsBefore(0));
  while (engine->contents().purgeStep()) {
  }
  EXPECT_EQ(engine->store().room().used(), row(id)->blocks * 512);
}

TEST_F(OpenAllDayTest, WhatWasWrittenBeforeItWasOpenedAgainGoesUpToo) {
  const NodeId id = makeFile("a.odt", "hello");
  openFor(id);
  pass(29);
  EXPECT_TRUE(sent().empty());
  pass(3);
  EXPECT_EQ(hostContents("a.odt"), "hello");
}

TEST_F(SchedulerTest, WhatHasNoPlaceAtTheHostIsNotTriedOverAndOver) {
  extension->folder("f:a", "A");
  list();
  const NodeId folder = idOf("f:a");
  list(folder);
  const NodeId id = makeFile("a.txt", "hello", folder);
  // The folder is out of the tree, and to be made anew.
  engine->replica().write(Durability::eventual, [&](ReplicaWriter& writer) {
    Change made = journal::begin(writer, *writer.node(folder), clock);
    made.hostHasNothing();
    journal::put(writer, made);
    writer.clearItem(folder);
    writer.detach(folder, inSeconds(clock));
  });
  EXPECT_LE(push(), 2U);
  EXPECT_EQ(counts().pending, 2);
  EXPECT_TRUE(change(id));
}

}  // namespace
}  // namespace tulo::test
