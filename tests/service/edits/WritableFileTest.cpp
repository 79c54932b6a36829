#include "service/edits/WritableFile.h"

#include <sys/stat.h>

#include <cerrno>
#include <functional>
#include <thread>

#include "service/base/FaultPoints.h"
#include "tests/service/support/DescriptorShortage.h"
#include "tests/service/support/FilesFixture.h"

namespace tulo::test {
namespace {

class WritableFileTest : public FilesFixture {};

TEST_F(WritableFileTest, AllWhoHaveAFileOpenSeeTheSameBytes) {
  const NodeId id = makeFile("a", "");
  const auto one = open(id);
  const auto two = open(id);
  EXPECT_EQ(put(*one, "hello", 0), 5);
  EXPECT_EQ(bytesOf(*two), "hello");
  EXPECT_EQ(put(*two, "J", 0), 1);
  EXPECT_EQ(bytesOf(*one), "Jello");
}

TEST_F(WritableFileTest, WritingBeyondTheEndLeavesAHole) {
  const NodeId id = makeFile("a", "");
  const auto file = open(id);
  EXPECT_EQ(put(*file, "x", 3), 1);
  EXPECT_EQ(bytesOf(*file), std::string("\0\0\0x", 4));
}

TEST_F(WritableFileTest, TruncatingShortensAndLengthens) {
  const NodeId id = makeFile("a", "hello");
  const auto file = open(id);
  EXPECT_EQ(file->truncate(2), 0);
  EXPECT_EQ(bytesOf(*file), "he");
  EXPECT_EQ(file->truncate(4), 0);
  EXPECT_EQ(bytesOf(*file), std::string("he\0\0", 4));
  close(id);
  EXPECT_EQ(row(id)->size, 4);
}

TEST_F(WritableFileTest, WhatIsNotHereIsEmptiedButNeverChangedInPart) {
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

TEST_F(WritableFileTest, CopyingRangesBetweenFiles) {
  const NodeId from = makeFile("from", "0123456789");
  const NodeId to = makeFile("to", "abcdef");
  const auto source = open(from);
  const auto target = open(to);
  EXPECT_EQ(target->copyFrom(*source, 2, 1, 3), 3);
  EXPECT_EQ(bytesOf(*target), "a234ef");
}

TEST_F(WritableFileTest, ADeletedFileCanStillBeWritten) {
  const NodeId id = makeFile("a", "hello");
  const auto file = open(id);
  EXPECT_EQ(engine->edits().removeFile(kRootNode, "a"), 0);
  EXPECT_EQ(put(*file, "J", 0), 1);
  EXPECT_EQ(bytesOf(*file), "Jello");
  EXPECT_FALSE(change(id));
}

TEST_F(WritableFileTest, WhatIsShownFollowsTheWritesAtOnce) {
  const NodeId id = makeFile("a", "");
  const auto file = open(id);
  put(*file, "hello", 0);
  Entry entry = *row(id);
  files().overlay(entry);
  EXPECT_EQ(entry.size, 5);
  EXPECT_GT(entry.modified.whole, WallSeconds{});
}

TEST_F(WritableFileTest, OpeningAloneIsNoChange) {
  const NodeId id = downloaded("i:1", "a", "base");
  open(id);
  close(id);
  EXPECT_FALSE(change(id));
  EXPECT_EQ(row(id)->state, ContentState::downloaded);
}

TEST_F(WritableFileTest, AHandleThatWroteBeforeTheContentsWentOnTheirWayWritesToTheCopyToo) {
  const NodeId id = makeFile("a", "");
  const auto file = open(id);
  put(*file, "first", 0);
  markSent(id);
  const ContentId sentContent = row(id)->content;
  EXPECT_EQ(put(*file, "F", 0), 1);
  EXPECT_EQ(readFile(engine->store().path(sentContent)), "first");
  EXPECT_EQ(bytesOf(*file), "First");
}

TEST_F(WritableFileTest, WhatIsWrittenToANewFileAfterItWasSentIsNotTakenForSent) {
  const EditResult made = engine->edits().makeOpenFile(kRootNode, "a", 0600);
  ASSERT_EQ(made.error, 0);
  const NodeId id = made.entry.id;
  const auto program = engine->contents().openNew(made.entry);
  const auto file = open(id);
  put(*file, "one", 0);
  close(id);
  markSent(id);
  EXPECT_EQ(put(*file, "two", 0), 3);
  EXPECT_NE(row(id)->content, change(id)->request.contents());
  EXPECT_EQ(readFile(engine->store().path(change(id)->request.contents())), "one");
}

TEST_F(WritableFileTest, WhateverWasNotNotedYetIsNotedBeforeTheContentsAreTakenOver) {
  const NodeId id = makeFile("a", "");
  const auto file = open(id);
  put(*file, "hello", 0);
  std::int64_t size = 0;
  files().withSettled(id, Durability::eventual,
                      [&](ReplicaWriter& writer) { size = writer.node(id)->size; });
  EXPECT_EQ(size, 5);
}

TEST_F(WritableFileTest, WithoutContentsHereItIsReadElsewhere) {
  extension->file("i:1", "a.txt", "hello");
  list();
  const auto file = open(idOf("i:1"));
  char byte = 0;
  EXPECT_EQ(file->read(&byte, 1, 0), -ENODATA);
  EXPECT_EQ(file->seek(0, SEEK_DATA), -ENXIO);
  EXPECT_FALSE(file->duplicateDescriptor());
  EXPECT_EQ(file->force(false), 0);
}

TEST_F(WritableFileTest, AllocatingMakesRoomWithoutChangingTheBytes) {
  const NodeId id = makeFile("a", "hello");
  const auto file = open(id);
  EXPECT_EQ(file->allocate(0, 0, 9), 0);
  EXPECT_EQ(bytesOf(*file), std::string("hello\0\0\0\0", 9));
  EXPECT_EQ(file->allocate(0, 0, 0), EINVAL);
}

TEST_F(WritableFileTest, SeekingFindsDataAndItsEnd) {
  const NodeId id = makeFile("a", "hello");
  const auto file = open(id);
  EXPECT_EQ(file->seek(2, SEEK_DATA), 2);
  EXPECT_EQ(file->seek(0, SEEK_HOLE), 5);
  EXPECT_EQ(file->seek(5, SEEK_DATA), -ENXIO);
}

TEST_F(WritableFileTest, IsChangedFromAWriteUntilItIsSettled) {
  const NodeId id = makeFile("a", "");
  const auto file = open(id);
  EXPECT_FALSE(file->isChanged());
  put(*file, "hello", 0);
  EXPECT_TRUE(file->isChanged());
  EXPECT_TRUE(file->settle());
  EXPECT_FALSE(file->isChanged());
  EXPECT_EQ(row(id)->size, 5);
  EXPECT_FALSE(file->settle());
}

TEST_F(WritableFileTest, SeveralAreSettledTogether) {
  const NodeId one = makeFile("one", "");
  const NodeId two = makeFile("two", "");
  const NodeId idle = makeFile("idle", "");
  const std::vector<std::shared_ptr<WritableFile>> all = {open(one), open(two), open(idle)};
  put(*all[0], "1", 0);
  put(*all[1], "22", 0);
  WritableFile::settleTogether(all);
  EXPECT_EQ(row(one)->size, 1);
  EXPECT_EQ(row(two)->size, 2);
  EXPECT_EQ(row(idle)->size, 0);
  EXPECT_FALSE(all[0]->isChanged() || all[1]->isChanged());
}

TEST_F(WritableFileTest, WhatCannotBeSettledStaysChanged) {
  const NodeId id = makeFile("a", "");
  const auto file = open(id);
  put(*file, "hello", 0);
  breakRows();
  EXPECT_THROW(file->settle(), sqlite::DatabaseError);
  EXPECT_TRUE(file->isChanged());
  WritableFile::settleTogether({file});
  EXPECT_TRUE(file->isChanged());
  mendRows();
  EXPECT_TRUE(file->settle());
  EXPECT_EQ(row(id)->size, 5);
}

TEST_F(WritableFileTest, WhoeverWritesAfterTheContentsWentUpBeginsAnew) {
  const NodeId id = downloaded("i:1", "a", "base");
  const auto program = openForReading(id);
  const auto file = open(id);
  put(*file, "B", 0);
  close(id);
  push();
  ASSERT_EQ(row(id)->state, ContentState::downloaded);
  EXPECT_EQ(put(*file, "C", 0), 1);
  EXPECT_EQ(row(id)->state, ContentState::dirty);
  EXPECT_TRUE(change(id)->hasContents());
}

TEST_F(WritableFileTest, WhatIsNewAtTheHostIsNotEmptiedByWhoeverHasTheVersionBefore) {
  const NodeId id = downloaded("i:1", "a", "base");
  const auto file = open(id);
  extension->edit("i:1", "the next version");
  list();
  ASSERT_EQ(readThrough(id), "the next version");
  EXPECT_NE(bytesOf(*file), "base");
  EXPECT_EQ(put(*file, "!", 16), 1);
  EXPECT_EQ(bytesOf(*file), "the next version!");
  close(id);
  EXPECT_EQ(contentsOf(id), "the next version!");
}

TEST_F(WritableFileTest, EmptyingWhatCameMeanwhileEmptiesIt) {
  extension->file("i:1", "a.txt", "hello");
  list();
  const NodeId id = idOf("i:1");
  const auto file = open(id);
  readThrough(id);
  EXPECT_EQ(put(*file, "J", 0), 1);
  EXPECT_EQ(bytesOf(*file), "Jello");
  EXPECT_EQ(file->truncate(0), 0);
  EXPECT_EQ(bytesOf(*file), "");
}

TEST_F(WritableFileTest, OpeningAgainFindsWhatTheNodeHasNow) {
  const NodeId id = downloaded("i:1", "a", "base");
  const auto file = open(id);
  extension->edit("i:1", "the next version");
  list();
  readThrough(id);
  open(id);
  const std::optional<FileDescriptor> now = file->duplicateDescriptor();
  ASSERT_TRUE(now);
  std::string bytes(100, '\0');
  bytes.resize(static_cast<std::size_t>(::pread(now->get(), bytes.data(), bytes.size(), 0)));
  EXPECT_EQ(bytes, "the next version");
}

TEST_F(WritableFileTest, AWriteThatCannotBeNotedLeavesTheContentsAsTheyWere) {
  const NodeId id = makeFile("a", "first");
  markSent(id);
  const auto file = open(id);
  breakRows();
  EXPECT_EQ(put(*file, "F", 0), -EIO);
  mendRows();
  const std::optional<FileDescriptor> now = file->duplicateDescriptor();
  ASSERT_TRUE(now);
  struct stat expected = {};
  struct stat found = {};
  ASSERT_EQ(::stat(engine->store().path(row(id)->content).c_str(), &expected), 0);
  ASSERT_EQ(::fstat(now->get(), &found), 0);
  EXPECT_EQ(found.st_ino, expected.st_ino);
  EXPECT_EQ(put(*file, "F", 0), 1);
  EXPECT_EQ(bytesOf(*file), "First");
}

TEST_F(WritableFileTest, WithoutDescriptorsNothingIsCopiedAndTheProgramIsToldWhy) {
  const NodeId from = makeFile("from", "0123456789");
  const NodeId to = makeFile("to", "abcdef");
  const auto source = open(from);
  const auto target = open(to);
  {
    const DescriptorShortage shortage(0);
    EXPECT_EQ(target->copyFrom(*source, 0, 0, 3), -EMFILE);
  }
  EXPECT_EQ(bytesOf(*target), "abcdef");
}

// The settling comes between the two halves of a write: when the file is marked, and when it has
// the bytes.
class DuringAWrite : public FilesFixture {
 protected:
  ~DuringAWrite() override { setFaultHook(nullptr); }

  // Writes five bytes, and runs the function on another thread just before they are in the file.
  void writeWith(NodeId id, const std::function<void()>& meanwhile) {
    setFaultHook([&](std::string_view point) {
      if (point == "write.begins") std::thread(meanwhile).join();
    });
    put(*open(id), "hello", 0);
    setFaultHook(nullptr);
  }

  void expectLaterNoted(NodeId id) {
    EXPECT_TRUE(open(id)->isChanged());
    close(id);
    EXPECT_EQ(row(id)->size, 5);
  }
};

TEST_F(DuringAWrite, ASettledRowIsNotTakenForTheLastWord) {
  const NodeId id = makeFile("a", "");
  writeWith(id, [&] { EXPECT_EQ(files().settle(id), 0); });
  expectLaterNoted(id);
}

TEST_F(DuringAWrite, SettlingSeveralTogetherIsNotTakenForTheLastWord) {
  const NodeId id = makeFile("a", "");
  writeWith(id, [&] { WritableFile::settleTogether({files().find(id)}); });
  expectLaterNoted(id);
}

TEST_F(DuringAWrite, SettingATimeIsNotTakenForTheLastWord) {
  const NodeId id = makeFile("a", "");
  writeWith(id, [&] { EXPECT_EQ(files().setModified(id, {1'000'000, 0}), 0); });
  expectLaterNoted(id);
}

TEST_F(WritableFileTest, ATimeThatCannotBeSetLeavesTheWriteToBeNoted) {
  const NodeId id = makeFile("a", "");
  put(*open(id), "hello", 0);
  breakRows();
  EXPECT_EQ(files().setModified(id, {1'000'000, 0}), EIO);
  mendRows();
  EXPECT_TRUE(open(id)->isChanged());
  close(id);
  EXPECT_EQ(row(id)->size, 5);
}

}  // namespace
}  // namespace tulo::test
