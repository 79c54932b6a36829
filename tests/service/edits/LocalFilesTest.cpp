#include "service/edits/LocalFiles.h"

#include <cerrno>

#include "tests/service/support/ReplicaSql.h"
#include "tests/service/support/WritingFixture.h"

namespace tulo::test {
namespace {

class LocalFilesTest : public WritingFixture {
 protected:
  LocalFiles& files() { return engine->files(); }

  static std::string bytesOf(WritableFile& file) {
    std::string result(100, '\0');
    const ssize_t count = file.read(result.data(), result.size(), 0);
    result.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
    return result;
  }

  static ssize_t put(WritableFile& file, const std::string& bytes, off_t offset) {
    return file.write(bytes.data(), bytes.size(), offset);
  }

  std::unique_ptr<OpenFile> openForReading(NodeId id) {
    auto answer = engine->contents().openNow(id, true);
    EXPECT_TRUE(answer && answer->error == 0);
    return answer ? std::move(answer->file) : nullptr;
  }

  // The change is on its way: sent, and not answered.
  void markSent(NodeId id) {
    files().withSettled(id, Durability::eventual, [&](ReplicaWriter& writer) {
      Change sent = *journal::find(writer, id);
      sent.sent = true;
      sent.sentContent = writer.node(id)->content;
      journal::put(writer, sent);
    });
  }

  bool isDurable(ContentId content) {
    return engine->replica().read([&](ReplicaReader& reader) {
      return askSql(reader, "SELECT durable FROM content WHERE id=" +
                                std::to_string(content.number())) != 0;
    });
  }
};

TEST_F(LocalFilesTest, AllWhoHaveAFileOpenSeeTheSameBytes) {
  const NodeId id = makeFile("a", "");
  const auto one = open(id);
  const auto two = open(id);
  EXPECT_EQ(put(*one, "hello", 0), 5);
  EXPECT_EQ(bytesOf(*two), "hello");
  EXPECT_EQ(put(*two, "J", 0), 1);
  EXPECT_EQ(bytesOf(*one), "Jello");
}

TEST_F(LocalFilesTest, AFileIsOpenAsSoonAsItIsMadeForAProgram) {
  const EditResult made = engine->edits().makeOpenFile(kRootNode, "a", 0600);
  ASSERT_EQ(made.error, 0);
  const auto file = files().find(made.entry.id);
  ASSERT_TRUE(file);
  EXPECT_EQ(open(made.entry.id), file);
  EXPECT_EQ(put(*file, "hello", 0), 5);
  close(made.entry.id);
  EXPECT_EQ(row(made.entry.id)->size, 5);
  EXPECT_EQ(files().find(made.entry.id), nullptr);
  push();
  EXPECT_EQ(hostContents("a"), "hello");
}

TEST_F(LocalFilesTest, WhatIsWrittenToANewFileAfterItWasSentIsNotTakenForSent) {
  const EditResult made = engine->edits().makeOpenFile(kRootNode, "a", 0600);
  ASSERT_EQ(made.error, 0);
  const NodeId id = made.entry.id;
  const auto program = engine->contents().openNew(made.entry);
  const auto file = open(id);
  put(*file, "one", 0);
  close(id);
  markSent(id);
  EXPECT_EQ(put(*file, "two", 0), 3);
  EXPECT_NE(row(id)->content, change(id)->sentContent);
  EXPECT_EQ(readFile(engine->store().path(change(id)->sentContent)), "one");
}

TEST_F(LocalFilesTest, NothingIsOpenOfAFileThatCouldNotBeMade) {
  const EditResult first = engine->edits().makeOpenFile(kRootNode, "a", 0600);
  files().released(first.entry.id);
  EXPECT_EQ(engine->edits().makeOpenFile(kRootNode, "a", 0600).error, EEXIST);
  EXPECT_EQ(files().find(first.entry.id), nullptr);
  EXPECT_EQ(files().find(NodeId(first.entry.id.number() + 1)), nullptr);
  // Contents cannot be made.
  const std::string contents = engine->replica().directory() + "/contents";
  std::filesystem::rename(contents, contents + ".away");
  writeFile(contents, "");
  EXPECT_THROW(engine->edits().makeOpenFile(kRootNode, "b", 0600), ContentError);
  std::filesystem::remove(contents);
  std::filesystem::rename(contents + ".away", contents);
  EXPECT_EQ(named("b"), kNoNode);
  EXPECT_EQ(engine->edits().makeOpenFile(kRootNode, "b", 0600).error, 0);
}

TEST_F(LocalFilesTest, WritingBeyondTheEndLeavesAHole) {
  const NodeId id = makeFile("a", "");
  const auto file = open(id);
  EXPECT_EQ(put(*file, "x", 3), 1);
  EXPECT_EQ(bytesOf(*file), std::string("\0\0\0x", 4));
}

TEST_F(LocalFilesTest, TruncatingShortensAndLengthens) {
  const NodeId id = makeFile("a", "hello");
  const auto file = open(id);
  EXPECT_EQ(file->truncate(2), 0);
  EXPECT_EQ(bytesOf(*file), "he");
  EXPECT_EQ(file->truncate(4), 0);
  EXPECT_EQ(bytesOf(*file), std::string("he\0\0", 4));
  close(id);
  EXPECT_EQ(row(id)->size, 4);
}

TEST_F(LocalFilesTest, WhatIsNotHereIsEmptiedButNeverChangedInPart) {
  extension->file("i:1", "a.txt", "hello");
  list();
  const NodeId id = idOf("i:1");
  const auto file = open(id);
  EXPECT_EQ(file->truncate(3), EIO);
  EXPECT_EQ(put(*file, "J", 0), -EIO);
  EXPECT_EQ(row(id)->state, ContentState::dataless);
  EXPECT_FALSE(change(id));
  EXPECT_EQ(file->truncate(0), 0);
  EXPECT_EQ(row(id)->state, ContentState::dirty);
}

TEST_F(LocalFilesTest, ClosingBringsSizeAndTimeIntoTheRow) {
  const NodeId id = makeFile("a", "");
  const auto file = open(id);
  put(*file, "hello", 0);
  EXPECT_EQ(row(id)->size, 0);
  clock += milliseconds(300);
  close(id);
  EXPECT_EQ(row(id)->size, 5);
  EXPECT_GT(row(id)->blocks, 0);
  EXPECT_EQ(change(id)->due, clock + kQuiet);
}

TEST_F(LocalFilesTest, ClosingWithoutAWriteChangesNothing) {
  const NodeId id = makeFile("a", "hello");
  const Change before = *change(id);
  clock += milliseconds(300);
  open(id);
  close(id);
  EXPECT_EQ(change(id)->due, before.due);
}

TEST_F(LocalFilesTest, WhatIsShownFollowsTheWritesAtOnce) {
  const NodeId id = makeFile("a", "");
  const auto file = open(id);
  put(*file, "hello", 0);
  Entry entry = *row(id);
  files().overlay(entry);
  EXPECT_EQ(entry.size, 5);
  EXPECT_GT(entry.modified.whole, WallSeconds{});
}

TEST_F(LocalFilesTest, TheJournalKnowsOfAnEditBeforeTheFirstByteIsWritten) {
  const NodeId id = downloaded("i:1", "a", "base");
  const auto file = open(id);
  EXPECT_FALSE(change(id));
  EXPECT_EQ(put(*file, "B", 0), 1);
  ASSERT_TRUE(change(id));
  EXPECT_TRUE(change(id)->contents);
  EXPECT_EQ(change(id)->baseVersion, "1");
  EXPECT_EQ(row(id)->state, ContentState::dirty);
  EXPECT_EQ(bytesOf(*file), "Base");
}

TEST_F(LocalFilesTest, OpeningAloneIsNoChange) {
  const NodeId id = downloaded("i:1", "a", "base");
  open(id);
  close(id);
  EXPECT_FALSE(change(id));
  EXPECT_EQ(row(id)->state, ContentState::downloaded);
}

TEST_F(LocalFilesTest, AWriteWhileTheContentsAreOnTheirWayGoesToACopy) {
  const NodeId id = makeFile("a", "first");
  markSent(id);
  const ContentId sentContent = row(id)->content;
  write(id, "second");
  EXPECT_NE(row(id)->content, sentContent);
  EXPECT_EQ(readFile(engine->store().path(sentContent)), "first");
  EXPECT_EQ(contentsOf(id), "second");
}

TEST_F(LocalFilesTest, AWriteInTheMiddleOfContentsOnTheirWayKeepsTheRest) {
  const NodeId id = makeFile("a", "first");
  markSent(id);
  const auto file = open(id);
  EXPECT_EQ(put(*file, "F", 0), 1);
  EXPECT_EQ(bytesOf(*file), "First");
  close(id);
  EXPECT_EQ(contentsOf(id), "First");
}

TEST_F(LocalFilesTest, AHandleThatWroteBeforeTheContentsWentOnTheirWayWritesToTheCopyToo) {
  const NodeId id = makeFile("a", "");
  const auto file = open(id);
  put(*file, "first", 0);
  markSent(id);
  const ContentId sentContent = row(id)->content;
  EXPECT_EQ(put(*file, "F", 0), 1);
  EXPECT_EQ(readFile(engine->store().path(sentContent)), "first");
  EXPECT_EQ(bytesOf(*file), "First");
}

TEST_F(LocalFilesTest, FsyncMakesContentsAndJournalDurable) {
  const NodeId id = makeFile("a", "");
  const auto file = open(id);
  put(*file, "hello", 0);
  EXPECT_EQ(files().synchronize(id, false), 0);
  files().catchUp();
  EXPECT_EQ(row(id)->size, 5);
  engine->files().released(id);
  EXPECT_EQ(files().synchronize(id, true), 0);
}

TEST_F(LocalFilesTest, FsyncOfAFileWhoseContentsAreGoneFails) {
  const NodeId id = makeFile("a", "hello");
  std::filesystem::remove(engine->store().path(row(id)->content));
  EXPECT_EQ(files().synchronize(id, false), EIO);
}

TEST_F(LocalFilesTest, EachWriteMakesTheBackgroundForceTheContentsAgain) {
  const NodeId id = makeFile("a", "hello");
  engine->housekeepingStep();
  EXPECT_TRUE(isDurable(row(id)->content));
  write(id, "again");
  EXPECT_FALSE(isDurable(row(id)->content));
}

TEST_F(LocalFilesTest, ManyContentsAreForcedTogether) {
  std::vector<NodeId> ids;
  for (int i = 0; i < 20; ++i)
    ids.push_back(makeFile("file " + std::to_string(i), "x"));
  std::filesystem::remove(engine->store().path(row(ids[7])->content));
  engine->housekeepingStep();
  for (const NodeId id : ids)
    EXPECT_EQ(isDurable(row(id)->content), id != ids[7]);
}

TEST_F(LocalFilesTest, CopyingRangesBetweenFiles) {
  const NodeId from = makeFile("from", "0123456789");
  const NodeId to = makeFile("to", "abcdef");
  const auto source = open(from);
  const auto target = open(to);
  EXPECT_EQ(target->copyFrom(*source, 2, 1, 3), 3);
  EXPECT_EQ(bytesOf(*target), "a234ef");
}

TEST_F(LocalFilesTest, AReaderSeesWhatWasWrittenAndClosedBeforeItsFirstRead) {
  const NodeId id = downloaded("i:1", "a.txt", "base");
  const auto reader = openForReading(id);
  write(id, "longer than before");
  EXPECT_EQ(EngineFixture::contentsOf(*reader), "longer than before");
  EXPECT_FALSE(reader->endsBefore(10));
}

TEST_F(LocalFilesTest, AReaderSeesWhatWasWrittenAndClosedAfterItsFirstRead) {
  const NodeId id = downloaded("i:1", "a.txt", "base");
  const auto reader = openForReading(id);
  EXPECT_EQ(EngineFixture::contentsOf(*reader), "base");
  write(id, "new");
  EXPECT_EQ(EngineFixture::contentsOf(*reader), "new");
  push();
  EXPECT_EQ(EngineFixture::contentsOf(*reader), "new");
}

TEST_F(LocalFilesTest, AReaderFollowsToTheCopyThatIsWrittenWhileTheContentsAreOnTheirWay) {
  const NodeId id = makeFile("a.txt", "first");
  const auto reader = openForReading(id);
  EXPECT_EQ(EngineFixture::contentsOf(*reader), "first");
  markSent(id);
  const ContentId before = row(id)->content;
  write(id, "second");
  ASSERT_NE(row(id)->content, before);
  EXPECT_EQ(EngineFixture::contentsOf(*reader), "second");
  EXPECT_TRUE(engine->openFiles().isContentOpen(row(id)->content));
  EXPECT_FALSE(engine->openFiles().isContentOpen(before));
}

TEST_F(LocalFilesTest, AReaderOfAnEmptyFileSeesWhatIsWrittenLater) {
  const NodeId id = downloaded("i:1", "a.txt", "");
  const auto reader = openForReading(id);
  EXPECT_TRUE(reader->endsBefore(0));
  write(id, "something");
  EXPECT_EQ(EngineFixture::contentsOf(*reader), "something");
}

TEST_F(LocalFilesTest, AReaderWhoComesBeforeTheRowFollowsTheBytesReadsAll) {
  const NodeId id = makeFile("a.txt", "first");
  const auto file = open(id);
  EXPECT_EQ(put(*file, " and more", 5), 9);
  const auto reader = openForReading(id);
  EXPECT_EQ(EngineFixture::contentsOf(*reader), "first and more");
  close(id);
}

TEST_F(LocalFilesTest, AFileThatIsGoneIsNotOpened) {
  const OpenedFile opened = files().open(NodeId(999'999));
  EXPECT_EQ(opened.file, nullptr);
  EXPECT_EQ(opened.error, ESTALE);
}

TEST_F(LocalFilesTest, AFileWhoseContentsAreGoneTellsOfIt) {
  const NodeId id = makeFile("a", "hello");
  std::filesystem::remove(engine->store().path(row(id)->content));
  const OpenedFile opened = files().open(id);
  EXPECT_EQ(opened.file, nullptr);
  EXPECT_EQ(opened.error, EIO);
}

TEST_F(LocalFilesTest, ADeletedFileCanStillBeWritten) {
  const NodeId id = makeFile("a", "hello");
  const auto file = open(id);
  EXPECT_EQ(engine->edits().removeFile(kRootNode, "a"), 0);
  EXPECT_EQ(put(*file, "J", 0), 1);
  EXPECT_EQ(bytesOf(*file), "Jello");
  EXPECT_FALSE(change(id));
}

TEST_F(LocalFilesTest, WhatIsWrittenAfterTheDeletionIsNotForTheHost) {
  const NodeId id = downloaded("i:1", "a", "hello");
  const auto file = open(id);
  EXPECT_EQ(engine->edits().removeFile(kRootNode, "a"), 0);
  EXPECT_EQ(put(*file, "J", 0), 1);
  EXPECT_EQ(bytesOf(*file), "Jello");
  ASSERT_TRUE(change(id));
  EXPECT_TRUE(change(id)->deleted);
  EXPECT_FALSE(change(id)->contents);
}

TEST_F(LocalFilesTest, SizesAreWhatTheFilesSayAfterACrash) {
  const NodeId id = makeFile("a", "hello");
  // Written, and not noted in the row before the service was killed.
  writeFile(engine->store().path(row(id)->content), "hello, world");
  reopen();
  EXPECT_EQ(row(id)->size, 12);
}

TEST_F(LocalFilesTest, WhateverWasNotNotedYetIsNotedBeforeTheContentsAreTakenOver) {
  const NodeId id = makeFile("a", "");
  const auto file = open(id);
  put(*file, "hello", 0);
  std::int64_t size = 0;
  files().withSettled(id, Durability::eventual,
                      [&](ReplicaWriter& writer) { size = writer.node(id)->size; });
  EXPECT_EQ(size, 5);
}

}  // namespace
}  // namespace tulo::test
