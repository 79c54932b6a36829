#include "service/upload/Delivery.h"

#include "tests/service/support/WritingFixture.h"

namespace tulo::test {
namespace {

class DeliveryTest : public WritingFixture {};

TEST_F(DeliveryTest, AFolderGoesUpBeforeWhatIsInIt) {
  const NodeId outer = makeFolder("outer");
  const NodeId inner = makeFolder("inner", outer);
  makeFile("leaf", "x", inner);
  push();
  EXPECT_EQ(sentNames(), (std::vector<std::string>{"outer", "inner", "leaf"}));
  EXPECT_EQ(sent()[2].parent, row(inner)->identifier);
}

TEST_F(DeliveryTest, AFileMovedIntoANewFolderWaitsForIt) {
  downloaded("i:1", "a.txt", "hello");
  const NodeId folder = makeFolder("New");
  EXPECT_EQ(engine->edits().rename(kRootNode, "a.txt", folder, "a.txt", 0), 0);
  push();
  ASSERT_EQ(sent().size(), 2U);
  EXPECT_EQ(sent()[0].name, "New");
  EXPECT_EQ(extension->find("i:1")->parent, "new:1");
}

TEST_F(DeliveryTest, WhatWasDeletedHereIsDeletedThere) {
  downloaded("i:1", "a.txt", "hello");
  EXPECT_EQ(engine->edits().removeFile(kRootNode, "a.txt"), 0);
  push();
  ASSERT_EQ(sent().size(), 1U);
  EXPECT_EQ(sent()[0].kind, Kind::remove);
  EXPECT_FALSE(extension->find("i:1"));
  EXPECT_EQ(counts().pending, 0);
}

TEST_F(DeliveryTest, AFolderWithSomethingUnknownInItIsNotDeletedThere) {
  extension->folder("f:1", "Docs");
  list();
  EXPECT_EQ(refresh(idOf("f:1")), 0);
  EXPECT_EQ(engine->edits().removeFolder(kRootNode, "Docs"), 0);
  extension->file("i:9", "new there.txt", "precious", "f:1");
  push();
  EXPECT_TRUE(extension->find("f:1"));
  EXPECT_TRUE(extension->find("i:9"));
  list();
  EXPECT_NE(named("Docs"), kNoNode);
}

TEST_F(DeliveryTest, WhatIsInAFolderIsDeletedBeforeTheFolder) {
  extension->folder("f:1", "Docs");
  extension->file("i:1", "a.txt", "hello", "f:1");
  list();
  const NodeId folder = idOf("f:1");
  EXPECT_EQ(refresh(folder), 0);
  EXPECT_EQ(engine->edits().removeFile(folder, "a.txt"), 0);
  EXPECT_EQ(engine->edits().removeFolder(kRootNode, "Docs"), 0);
  push();
  ASSERT_EQ(sent().size(), 2U);
  EXPECT_EQ(sent()[0].identifier, "i:1");
  EXPECT_EQ(sent()[1].identifier, "f:1");
}

TEST_F(DeliveryTest, TheSameBytesOnBothSidesAreNoConflict) {
  const NodeId id = downloaded("i:1", "a.txt", "base");
  write(id, "the same");
  extension->edit("i:1", "the same");
  push();
  pushAll();
  EXPECT_TRUE(sent().empty());
  EXPECT_EQ(names().size(), 1U);
  EXPECT_EQ(row(id)->state, ContentState::downloaded);
  EXPECT_FALSE(change(id));
  EXPECT_EQ(engine->uploader().statistics().conflicts, 0U);
}

TEST_F(DeliveryTest, ARenameGoesUpThoughBothSidesHaveTheSameBytes) {
  const NodeId id = downloaded("i:1", "a.txt", "base");
  write(id, "the same");
  EXPECT_EQ(rename("a.txt", "b.txt"), 0);
  extension->edit("i:1", "the same");
  push();
  pushAll();
  EXPECT_EQ(hostContents("b.txt"), "the same");
  EXPECT_EQ(row(id)->identifier, "i:1");
  EXPECT_EQ(engine->uploader().statistics().conflicts, 0U);
}

TEST_F(DeliveryTest, AWriteAfterTheSameBytesOnBothSidesGoesUp) {
  const NodeId id = downloaded("i:1", "a.txt", "base");
  write(id, "the same");
  extension->edit("i:1", "the same");
  push();
  write(id, "once more");
  push();
  pushAll();
  EXPECT_EQ(hostContents("a.txt"), "once more");
  EXPECT_EQ(names().size(), 1U);
}

TEST_F(DeliveryTest, WhatSomebodyPutOverItRightAfterwardsIsAnotherVersion) {
  const NodeId id = downloaded("i:1", "a.txt", "base");
  write(id, "mine!");
  // Between the change and the look that the extension takes at the row.
  extension->scriptMutation({.after = [&] { extension->edit("i:1", "other"); }});
  push();
  pushAll();
  EXPECT_EQ(extension->find("i:1")->contents, "other");
  EXPECT_EQ(hostContents(row(id)->name), "mine!");
  EXPECT_NE(row(id)->name, "a.txt");
  list();
  EXPECT_EQ(readThrough(named("a.txt")), "other");
  EXPECT_EQ(engine->uploader().statistics().conflicts, 1U);
}

TEST_F(DeliveryTest, WhatSomebodyPutOverANewFileRightAfterwardsIsAnotherVersion) {
  const NodeId id = makeFile("a.txt", "mine!");
  extension->scriptMutation({.after = [&] { extension->edit("new:1", "other"); }});
  push();
  pushAll();
  EXPECT_EQ(extension->find("new:1")->contents, "other");
  EXPECT_EQ(hostContents(row(id)->name), "mine!");
  EXPECT_NE(row(id)->name, "a.txt");
}

TEST_F(DeliveryTest, AHostMayCountByMoreThanOne) {
  const NodeId id = downloaded("i:1", "a.txt", "base");
  write(id, "mine!");
  extension->scriptMutation(
      {.after = [&] { extension->change("i:1", [](ScriptedItem& item) { item.version += 40; }); }});
  push();
  pushAll();
  EXPECT_EQ(names().size(), 1U);
  EXPECT_EQ(row(id)->contentVersion, "42");
  EXPECT_EQ(engine->uploader().statistics().conflicts, 0U);
}

TEST_F(DeliveryTest, AVersionThatIsNotKnownHereIsNotOverwritten) {
  const NodeId id = downloaded("i:1", "a.txt", "base");
  engine->replica().write(Durability::eventual,
                          [&](ReplicaWriter& writer) { writer.setVersions(id, "", ""); });
  write(id, "mine");
  extension->edit("i:1", "theirs, longer");
  push();
  pushAll();
  EXPECT_EQ(extension->find("i:1")->contents, "theirs, longer");
  EXPECT_EQ(hostContents(row(id)->name), "mine");
}

TEST_F(DeliveryTest, WhatTheHostSaysIsInUseIsLookedAtAgainBeforeAnybodyHearsOfIt) {
  const NodeId id = downloaded("i:1", "a.txt", "base");
  write(id, "mine");
  int told = -1;
  const auto ticket = engine->uploader().verdicts().begin([&](int error) { told = error; });
  engine->uploader().awaitVerdict(ticket, {id}, std::chrono::minutes(1));
  // Somebody changed it there after the look at it.
  extension->scriptMutation(
      {.error = platform::fileProviderError(platform::NSFileProviderErrorCode::serverUnreachable),
       .before = [&] { extension->edit("i:1", "theirs, longer"); }});
  drain();
  EXPECT_EQ(told, -1);
  pushAll();
  EXPECT_EQ(told, 0);
  EXPECT_EQ(extension->find("i:1")->contents, "theirs, longer");
  EXPECT_EQ(hostContents(row(id)->name), "mine");
}

// Renamed before, so that the change is older than the version.
TEST_F(DeliveryTest, TheVersionThatIsShownIsTheOneThatIsDeletedOrChanged) {
  const NodeId deleted = downloaded("i:1", "a.txt", "old");
  const NodeId edited = downloaded("i:2", "b.txt", "old");
  EXPECT_EQ(rename("a.txt", "A.txt"), 0);
  EXPECT_EQ(rename("b.txt", "B.txt"), 0);
  extension->edit("i:1", "a later version");
  extension->edit("i:2", "a later version");
  list();
  EXPECT_EQ(readThrough(deleted), "a later version");
  EXPECT_EQ(readThrough(edited), "a later version");
  EXPECT_EQ(engine->edits().removeFile(kRootNode, "A.txt"), 0);
  write(edited, "edited");
  push();
  pushAll();
  EXPECT_FALSE(extension->find("i:1"));
  EXPECT_EQ(extension->find("i:2")->contents, "edited");
  EXPECT_EQ(engine->uploader().statistics().conflicts, 0U);
}

}  // namespace
}  // namespace tulo::test
