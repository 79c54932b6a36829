#include "service/edits/LocalFiles.h"

#include <cerrno>

#include "service/errors/ContentError.h"
#include "tests/service/support/DescriptorShortage.h"
#include "tests/service/support/FilesFixture.h"

namespace tulo::test {
namespace {

class LocalFilesTest : public FilesFixture {};

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

TEST_F(LocalFilesTest, NothingIsOpenOfAFileThatCouldNotBeOpened) {
  const NodeId id = downloaded("i:1", "a", "base");
  {
    const DescriptorShortage shortage(0);
    EXPECT_EQ(files().open(id).error, EMFILE);
  }
  EXPECT_EQ(files().find(id), nullptr);
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

TEST_F(LocalFilesTest, ClosingBringsSizeAndTimeIntoTheRow) {
  const NodeId id = makeFile("a", "");
  const auto file = open(id);
  put(*file, "hello", 0);
  EXPECT_EQ(row(id)->size, 0);
  clock += milliseconds(300);
  close(id);
  EXPECT_EQ(row(id)->size, 5);
  EXPECT_GT(row(id)->blocks, 0);
  EXPECT_EQ(change(id)->standing.due(), clock + kQuiet);
}

// The kernel keeps what it is told, and appends where it takes the end to be.
TEST_F(LocalFilesTest, WhatWasReadBeforeTheFileWasClosedIsNotShownAfterwards) {
  const NodeId id = makeFile("a", "");
  put(*open(id), "hello", 0);
  Entry entry = *row(id);
  EXPECT_EQ(entry.size, 0);
  close(id);
  ASSERT_EQ(files().find(id), nullptr);
  files().overlay(entry);
  EXPECT_EQ(entry.size, 5);
  EXPECT_EQ(entry.blocks, row(id)->blocks);
  EXPECT_EQ(entry.modified, row(id)->modified);
}

TEST_F(LocalFilesTest, WhatIsOnItsWayIntoTheRowIsShownMeanwhile) {
  const NodeId id = makeFile("a", "");
  const auto file = open(id);
  put(*file, "hello", 0);
  Entry entry = *row(id);
  file->settleAnd([&](ReplicaWriter&) {
    // The program closes the file, and another one looks at it, before the commit.
    files().released(id);
    files().overlay(entry);
  });
  EXPECT_EQ(entry.size, 5);
  EXPECT_GT(entry.modified.whole, WallSeconds{});
  close(id);
  EXPECT_EQ(files().find(id), nullptr);
}

TEST_F(LocalFilesTest, WhatWasReadBeforeTheContentsWereSentIsNotShownAfterwards) {
  const NodeId id = makeFile("a", "");
  put(*open(id), "hello", 0);
  const auto reader = openForReading(id);
  Entry entry = *row(id);
  markSent(id);
  ASSERT_NE(files().find(id), nullptr);
  files().overlay(entry);
  EXPECT_EQ(entry.size, 5);
}

TEST_F(LocalFilesTest, ClosingWithoutAWriteChangesNothing) {
  const NodeId id = makeFile("a", "hello");
  const Change before = *change(id);
  clock += milliseconds(300);
  open(id);
  close(id);
  EXPECT_EQ(change(id)->standing.due(), before.standing.due());
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

TEST_F(LocalFilesTest, ManyContentsAreForcedTogether) {
  std::vector<NodeId> ids;
  for (int i = 0; i < 20; ++i)
    ids.push_back(makeFile("file " + std::to_string(i), "x"));
  std::filesystem::remove(engine->store().path(row(ids[7])->content));
  engine->housekeepingStep();
  for (const NodeId id : ids)
    EXPECT_EQ(isDurable(row(id)->content), id != ids[7]);
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

}  // namespace
}  // namespace tulo::test
