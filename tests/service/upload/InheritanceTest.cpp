#include "service/upload/Inheritance.h"

#include <linux/fs.h>

#include "tests/service/support/UploadFixture.h"

namespace tulo::test {
namespace {

class InheritanceTest : public UploadFixture {
 protected:
  // Whether the node may go on, with what it may have of the one that had its place.
  bool settle(NodeId id, const std::string& name, const Inheritance::IsActive& isActive) {
    return inTransaction([&](ReplicaWriter& writer) {
      Inheritance inheritance(writer, engine->edits().localNames(), engine->store(), isActive);
      Node node = *writer.node(id);
      Change change = *journal::find(writer, id);
      return inheritance.settle(node, change, {root(), name}, clock);
    });
  }

  static bool nobody(NodeId) { return false; }
};

TEST_F(InheritanceTest, WaitsForTheEndOfWhatIsBeingDoneWithTheFormerOne) {
  const NodeId former = downloaded("i:1", "a.txt", "old");
  EXPECT_EQ(engine->edits().removeFile(kRootNode, "a.txt"), 0);
  const NodeId fresh = makeFile("a.txt", "new");
  EXPECT_FALSE(settle(fresh, "a.txt", [&](NodeId node) { return node == former; }));
  EXPECT_TRUE(row(fresh)->identifier.empty());
  EXPECT_TRUE(change(former));
  EXPECT_TRUE(settle(fresh, "a.txt", nobody));
  EXPECT_EQ(row(fresh)->identifier, "i:1");
  EXPECT_EQ(change(fresh)->base().version, "1");
  EXPECT_FALSE(change(former));
}

TEST_F(InheritanceTest, WithoutAFormerOneTheNodeStaysNew) {
  const NodeId fresh = makeFile("a.txt", "new");
  EXPECT_TRUE(settle(fresh, "a.txt", nobody));
  EXPECT_TRUE(row(fresh)->identifier.empty());
}

TEST_F(InheritanceTest, WhatIsOnlyRenamedKeepsItsIdentity) {
  downloaded("i:1", "a.txt", "old");
  EXPECT_EQ(rename("a.txt", "b.txt"), 0);
  const NodeId fresh = makeFile("a.txt", "new");
  EXPECT_TRUE(settle(fresh, "a.txt", nobody));
  EXPECT_TRUE(row(fresh)->identifier.empty());
  EXPECT_EQ(row(idOf("i:1"))->name, "b.txt");
}

TEST_F(InheritanceTest, ANewFileRenamedOverAnotherIsNewContentsOfThatItem) {
  downloaded("i:1", "doc.txt", "old");
  const NodeId fresh = makeFile("doc.txt.new", "saved");
  EXPECT_EQ(rename("doc.txt.new", "doc.txt"), 0);
  push();
  ASSERT_EQ(sent().size(), 1U);
  EXPECT_EQ(sent()[0].kind, Kind::modify);
  EXPECT_EQ(sent()[0].identifier, "i:1");
  EXPECT_EQ(sent()[0].baseVersion, "1");
  EXPECT_EQ(hostContents("doc.txt"), "saved");
  EXPECT_EQ(row(fresh)->identifier, "i:1");
  EXPECT_EQ(named("doc.txt"), fresh);
}

TEST_F(InheritanceTest, ABackupAndANewFileAreNewContentsOfTheItem) {
  downloaded("i:1", "doc.txt", "old");
  EXPECT_EQ(rename("doc.txt", "doc.txt~"), 0);
  makeFile("doc.txt", "saved");
  push();
  pushAll();
  EXPECT_EQ(extension->find("i:1")->contents, "saved");
  EXPECT_TRUE(extension->named("doc.txt~").empty());
  EXPECT_EQ(contentsOf(named("doc.txt~")), "old");
}

TEST_F(InheritanceTest, FilesThatExchangeTheirNamesKeepTheirContents) {
  downloaded("i:1", "a", "A");
  downloaded("i:2", "b", "B");
  EXPECT_EQ(rename("a", "b", RENAME_EXCHANGE), 0);
  push();
  pushAll();
  EXPECT_EQ(hostContents("a"), "B");
  EXPECT_EQ(hostContents("b"), "A");
  EXPECT_EQ(extension->named("a").size(), 1U);
}

TEST_F(InheritanceTest, AVersionThatCameAfterTheDeletionIsNotOverwritten) {
  for (const char* theirs : {"longer than before", "OLD"}) {
    for (const bool listed : {false, true}) {
      downloaded("i:1", "a.txt", "old");
      EXPECT_EQ(engine->edits().removeFile(kRootNode, "a.txt"), 0);
      extension->edit("i:1", theirs);
      if (listed) list();
      const NodeId fresh = makeFile("a.txt", "new");
      if (listed) list();
      push();
      pushAll();
      list();
      EXPECT_EQ(extension->find("i:1")->contents, theirs);
      EXPECT_EQ(contentsOf(fresh), "new");
      EXPECT_NE(row(fresh)->name.find("conflicted copy"), std::string::npos);
      for (const auto& [name, id] : names())
        EXPECT_EQ(engine->edits().removeFile(kRootNode, name), 0);
      pushAll();
      ASSERT_TRUE(names().empty());
    }
  }
}

TEST_F(InheritanceTest, AVersionThatCameAfterTheBackupIsNotOverwritten) {
  downloaded("i:1", "doc.txt", "old");
  EXPECT_EQ(rename("doc.txt", "doc.txt~"), 0);
  extension->edit("i:1", "a later version");
  list();
  const NodeId fresh = makeFile("doc.txt", "saved");
  push();
  pushAll();
  EXPECT_EQ(extension->find("i:1")->contents, "a later version");
  EXPECT_EQ(contentsOf(fresh), "saved");
  EXPECT_NE(row(fresh)->name.find("conflicted copy"), std::string::npos);
}

}  // namespace
}  // namespace tulo::test
