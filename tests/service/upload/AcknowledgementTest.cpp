#include "service/upload/Acknowledgement.h"

#include "tests/service/support/UploadFixture.h"

namespace tulo::test {
namespace {

class AcknowledgementTest : public UploadFixture {};

TEST_F(AcknowledgementTest, AWriteDuringTheUploadGoesUpAfterwards) {
  const NodeId id = makeFile("a.txt", "first");
  extension->scriptMutation({.before = [&] { write(id, "second"); }});
  push();
  EXPECT_EQ(extension->find("new:1")->contents, "first");
  pushAll();
  ASSERT_EQ(sent().size(), 2U);
  EXPECT_EQ(sent()[1].kind, Kind::modify);
  EXPECT_EQ(extension->find("new:1")->contents, "second");
  EXPECT_EQ(contentsOf(id), "second");
  EXPECT_EQ(engine->uploader().statistics().conflicts, 0U);
}

TEST_F(AcknowledgementTest, ARenameDuringTheUploadGoesUpAfterwards) {
  const NodeId id = makeFile("a.txt", "first");
  extension->scriptMutation({.before = [&] { EXPECT_EQ(rename("a.txt", "b.txt"), 0); }});
  push();
  pushAll();
  EXPECT_TRUE(extension->named("a.txt").empty());
  EXPECT_EQ(hostContents("b.txt"), "first");
  EXPECT_EQ(row(id)->identifier, "new:1");
}

TEST_F(AcknowledgementTest, AListingThatIsOlderThanADeleteDoesNotBringTheItemBack) {
  extension->file("i:1", "a.txt", "hello");
  list();
  EXPECT_EQ(engine->edits().removeFile(kRootNode, "a.txt"), 0);
  listDuringPush();
  EXPECT_FALSE(extension->find("i:1"));
  EXPECT_EQ(named("a.txt"), kNoNode);
}

TEST_F(AcknowledgementTest, AListingThatIsOlderThanACreateDoesNotTakeTheItemAway) {
  for (const char* name : {"1.txt", "2.txt", "3.txt"})
    makeFile(name, "hello");
  const NodeId folder = makeFolder("Docs");
  listDuringPush();
  EXPECT_EQ(names().size(), 5U);
  EXPECT_EQ(named("Docs"), folder);
  EXPECT_EQ(hostContents("3.txt"), "hello");
}

TEST_F(AcknowledgementTest, AListingThatIsOlderThanARenameDoesNotUndoIt) {
  extension->file("i:1", "a.txt", "hello");
  list();
  EXPECT_EQ(rename("a.txt", "b.txt"), 0);
  listDuringPush();
  EXPECT_EQ(extension->find("i:1")->name, "b.txt");
  EXPECT_EQ(named("a.txt"), kNoNode);
  EXPECT_EQ(named("b.txt"), idOf("i:1"));
}

TEST_F(AcknowledgementTest, AListingThatIsOlderThanAMoveDoesNotTakeTheItemBack) {
  extension->folder("f:1", "Docs");
  extension->file("i:1", "a.txt", "hello");
  list();
  const NodeId folder = idOf("f:1");
  EXPECT_EQ(refresh(folder), 0);
  EXPECT_EQ(engine->edits().rename(kRootNode, "a.txt", folder, "a.txt", 0), 0);
  listDuringPush();
  EXPECT_EQ(extension->find("i:1")->parent, "f:1");
  EXPECT_EQ(named("a.txt"), kNoNode);
  EXPECT_NE(named("a.txt", folder), kNoNode);
}

TEST_F(AcknowledgementTest, AListingThatIsOlderThanAnEditDoesNotTakeTheContentsAway) {
  const NodeId id = downloaded("i:1", "a.txt", "base");
  write(id, "from here");
  listDuringPush();
  EXPECT_EQ(hostContents("a.txt"), "from here");
  EXPECT_EQ(row(id)->state, ContentState::downloaded);
  EXPECT_EQ(contentsOf(id), "from here");
  EXPECT_EQ(row(id)->contentVersion, std::to_string(extension->find("i:1")->version));
}

TEST_F(AcknowledgementTest, WhatAnOutdatedListingToldOfOthersIsTaken) {
  extension->file("i:1", "a.txt", "hello");
  list();
  EXPECT_EQ(engine->edits().removeFile(kRootNode, "a.txt"), 0);
  listDuringPush();
  EXPECT_EQ(named("a.txt"), kNoNode);
  EXPECT_NE(named("news.txt"), kNoNode);
}

// To whoever lists the folder it is as if nothing had been there.
TEST_F(AcknowledgementTest, WhatTheHostDeletesBeforeAnybodyHasListedItGoesHereToo) {
  extension->file("i:1", "other", "other");
  list();
  makeFile("a.txt", "made here");
  push();
  ASSERT_TRUE(extension->find("new:1"));
  extension->remove("new:1");
  list();
  EXPECT_EQ(named("a.txt"), kNoNode);
}

TEST_F(AcknowledgementTest, WhatTheHostMovesBackBeforeAnybodyHasListedItIsWhereItWas) {
  extension->folder("f:1", "folder");
  const NodeId file = downloaded("i:1", "a.txt", "hello");
  const NodeId folder = idOf("f:1");
  list(folder);
  ASSERT_EQ(engine->edits().rename(kRootNode, "a.txt", folder, "a.txt", 0), 0);
  push();
  ASSERT_EQ(extension->find("i:1")->parent, "f:1");
  extension->change("i:1", [](ScriptedItem& item) { item.parent = root(); });
  list(folder);
  list();
  EXPECT_EQ(named("a.txt"), file);
  EXPECT_EQ(named("a.txt", folder), kNoNode);
}

TEST_F(AcknowledgementTest, WhatTheHostPutsBackAfterADeletionIsShownAgain) {
  downloaded("i:1", "a.txt", "hello");
  const ScriptedItem item = *extension->find("i:1");
  ASSERT_EQ(engine->edits().removeFile(kRootNode, "a.txt"), 0);
  push();
  ASSERT_FALSE(extension->find("i:1"));
  extension->put(item);
  list();
  EXPECT_NE(named("a.txt"), kNoNode);
}

}  // namespace
}  // namespace tulo::test
