#include "service/edits/FirstWrite.h"

#include <cerrno>

#include "service/errors/ContentError.h"
#include "tests/service/support/FilesFixture.h"

namespace tulo::test {
namespace {

class FirstWriteTest : public FilesFixture {
 protected:
  bool isDone(NodeId id) {
    return engine->replica().read(
        [&](ReplicaReader& reader) { return FirstWrite::isDone(reader, *reader.node(id)); });
  }
};

TEST_F(FirstWriteTest, TheJournalKnowsOfAnEditBeforeTheFirstByteIsWritten) {
  const NodeId id = downloaded("i:1", "a", "base");
  const auto file = open(id);
  EXPECT_FALSE(change(id));
  EXPECT_EQ(put(*file, "B", 0), 1);
  ASSERT_TRUE(change(id));
  EXPECT_TRUE(change(id)->hasContents());
  EXPECT_EQ(change(id)->base().version, "1");
  EXPECT_EQ(row(id)->state, ContentState::dirty);
  EXPECT_EQ(bytesOf(*file), "Base");
}

TEST_F(FirstWriteTest, AWriteWhileTheContentsAreOnTheirWayGoesToACopy) {
  const NodeId id = makeFile("a", "first");
  markSent(id);
  const ContentId sentContent = row(id)->content;
  write(id, "second");
  EXPECT_NE(row(id)->content, sentContent);
  EXPECT_EQ(readFile(engine->store().path(sentContent)), "first");
  EXPECT_EQ(contentsOf(id), "second");
}

TEST_F(FirstWriteTest, AWriteInTheMiddleOfContentsOnTheirWayKeepsTheRest) {
  const NodeId id = makeFile("a", "first");
  markSent(id);
  const auto file = open(id);
  EXPECT_EQ(put(*file, "F", 0), 1);
  EXPECT_EQ(bytesOf(*file), "First");
  close(id);
  EXPECT_EQ(contentsOf(id), "First");
}

TEST_F(FirstWriteTest, WhatIsWrittenAfterTheDeletionIsNotForTheHost) {
  const NodeId id = downloaded("i:1", "a", "hello");
  const auto file = open(id);
  EXPECT_EQ(engine->edits().removeFile(kRootNode, "a"), 0);
  EXPECT_EQ(put(*file, "J", 0), 1);
  EXPECT_EQ(bytesOf(*file), "Jello");
  ASSERT_TRUE(change(id));
  EXPECT_TRUE(change(id)->isDeleted());
  EXPECT_FALSE(change(id)->hasContents());
}

TEST_F(FirstWriteTest, NothingIsToBeDoneForANewFileOnly) {
  const NodeId fresh = makeFile("new", "");
  EXPECT_TRUE(isDone(fresh));
  markSent(fresh);
  EXPECT_FALSE(isDone(fresh));
  EXPECT_FALSE(isDone(downloaded("i:1", "a", "base")));
}

TEST_F(FirstWriteTest, UntilTheLastStepTheNodeHasItsContentsFromBefore) {
  const NodeId id = makeFile("a", "first");
  markSent(id);
  const ContentId before = row(id)->content;
  const FileParts these = parts();
  FirstWrite first(these, id, true);
  first.reserve();
  EXPECT_NE(first.content(), before);
  const FileDescriptor copy = first.openContents(before);
  EXPECT_EQ(row(id)->content, before);
  EXPECT_EQ(readFile(engine->store().path(first.content())), "first");
  first.note();
  EXPECT_EQ(row(id)->content, first.content());
  EXPECT_EQ(row(id)->state, ContentState::dirty);
}

TEST_F(FirstWriteTest, WhatIsGoneIsNotWritten) {
  const FileParts these = parts();
  FirstWrite first(these, NodeId(999'999), true);
  try {
    first.reserve();
    ADD_FAILURE() << "nothing was thrown";
  } catch (const ContentError& error) {
    EXPECT_EQ(error.number(), ESTALE);
  }
}

TEST_F(FirstWriteTest, AFileThatStaysHereGetsNoChange) {
  const NodeId id = makeFile("a.part", "");
  const FileParts these = parts();
  FirstWrite first(these, id, true);
  first.reserve();
  first.openContents(kNoContent);
  first.note();
  EXPECT_FALSE(change(id));
  EXPECT_EQ(row(id)->state, ContentState::dirty);
}

TEST_F(FirstWriteTest, AnErrorThatTheFileHadIsForgotten) {
  const NodeId id = makeFile("a", "");
  engine->replica().write(Durability::eventual,
                          [&](ReplicaWriter& writer) { writer.setError(id, "no"); });
  const FileParts these = parts();
  FirstWrite first(these, id, true);
  first.reserve();
  first.openContents(kNoContent);
  first.note();
  EXPECT_EQ(row(id)->error, "");
}

}  // namespace
}  // namespace tulo::test
