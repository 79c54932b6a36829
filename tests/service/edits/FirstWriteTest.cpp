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
  const FileDescriptor copy = first.openContents();
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
  first.openContents();
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
  first.openContents();
  first.note();
  EXPECT_EQ(row(id)->error, "");
}

// A file that the host moved to a folder which nobody has looked into here, while a program has it
// open.
class OutOfTheTree : public FilesFixture {
 protected:
  OutOfTheTree() {
    extension->folder("f:a", "A");
    extension->folder("f:b", "B");
    list();
    extension->file("i:1", "a.txt", "base", "f:a");
    list(idOf("f:a"));
    id = idOf("i:1");
    readThrough(id);
    file = open(id);
    extension->change("i:1", [](ScriptedItem& item) { item.parent = "f:b"; });
    list(idOf("f:a"));
    EXPECT_EQ(row(id)->parent, kNoNode);
  }

  void edit() {
    EXPECT_EQ(put(*file, "mine", 0), 4);
    EXPECT_EQ(put(*file, " and more", 4), 9);
    close(id);
  }

  NodeId id = kNoNode;
  std::shared_ptr<WritableFile> file;
};

TEST_F(OutOfTheTree, AnEditIsJournaledAndGoesUpOnceTheFileIsBack) {
  edit();
  ASSERT_TRUE(change(id));
  EXPECT_TRUE(change(id)->hasContents());
  EXPECT_EQ(change(id)->base().version, "1");
  EXPECT_EQ(counts().pending, 1);
  push();
  EXPECT_TRUE(sent().empty());
  EXPECT_EQ(counts().pending, 1);
  list(idOf("f:b"));
  EXPECT_EQ(named("a.txt", idOf("f:b")), id);
  EXPECT_EQ(row(id)->size, 13);
  push();
  EXPECT_EQ(hostContents("a.txt"), "mine and more");
  EXPECT_FALSE(change(id));
  EXPECT_EQ(sent().size(), 1U);
}

TEST_F(OutOfTheTree, WhatTheHostMadeOfItMeanwhileStaysBesideTheEdit) {
  edit();
  extension->edit("i:1", "the host's");
  list(idOf("f:b"));
  EXPECT_EQ(readFile(engine->store().path(row(id)->content)), "mine and more");
  pushAll();
  EXPECT_EQ(hostContents("a.txt"), "the host's");
  EXPECT_EQ(names(idOf("f:b")).size(), 2U);
  ASSERT_EQ(sent().size(), 1U);
  EXPECT_EQ(sent()[0].contents, "mine and more");
  EXPECT_EQ(sent()[0].parent, "f:b");
}

TEST_F(OutOfTheTree, AnEditAfterTheFolderHasComeBackWithAnotherVersionConflicts) {
  OpenFile handle(engine->replica(), engine->openFiles(), engine->store(), id, row(id)->content,
                  {});
  handle.setWrites();
  extension->edit("i:1", "the host's");
  list(idOf("f:b"));
  EXPECT_EQ(put(*file, "mine", 0), 4);
  EXPECT_EQ(change(id)->base().version, "1");
}

TEST_F(OutOfTheTree, AnEditOfWhatDoesNotComeBackIsRecovered) {
  edit();
  extension->remove("i:1");
  engine->replica().write(Durability::eventual, [&](ReplicaWriter& writer) {
    runSql(writer, "UPDATE node SET detached=detached-60 WHERE detached>0");
  });
  while (engine->contents().purgeStep()) {
  }
  const NodeId folder = named("Recovered files");
  ASSERT_NE(folder, kNoNode);
  EXPECT_EQ(named("a.txt", folder), id);
  pushAll();
  EXPECT_EQ(hostContents("a.txt"), "mine and more");
}

TEST_F(OutOfTheTree, AnEditIsNotLostWithItsFolder) {
  // The folder that it was in is gone for good, and the row is on its own.
  engine->replica().write(Durability::eventual, [&](ReplicaWriter& writer) {
    runSql(writer, "UPDATE node SET state=2 WHERE id=" + std::to_string(id.number()));
    runSql(writer, "UPDATE node SET detached=detached-60 WHERE detached>0");
  });
  engine->files().released(id);
  while (engine->contents().purgeStep()) {
  }
  EXPECT_EQ(named("a.txt", named("Recovered files")), id);
}

}  // namespace
}  // namespace tulo::test
