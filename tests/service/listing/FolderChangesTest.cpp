#include "service/listing/FolderChanges.h"

#include <string>

#include "tests/service/support/WritingFixture.h"

namespace tulo::test {
namespace {

class FolderChangesTest : public WritingFixture {
 protected:
  template <typename Function>
  void look(NodeId folder, Function&& function) {
    engine->replica().write(Durability::eventual, [&](ReplicaWriter& writer) {
      FolderChanges changes(writer, *writer.node(folder));
      function(changes);
    });
  }

  static ItemRecord item(const std::string& identifier, const std::string& name,
                         NodeKind kind = NodeKind::file) {
    ItemRecord record;
    record.identifier = identifier;
    record.filename = name;
    record.kind = kind;
    return record;
  }
};

TEST_F(FolderChangesTest, KnowsTheChangesOfTheFoldersChildren) {
  const NodeId same = downloaded("i:1", "same", "1");
  const NodeId renamed = downloaded("i:2", "old", "2");
  ASSERT_EQ(rename("old", "new"), 0);
  look(kRootNode, [&](FolderChanges& changes) {
    EXPECT_FALSE(changes.of(same));
    ASSERT_TRUE(changes.of(renamed));
    EXPECT_EQ(changes.of(renamed)->base().place.filename, "old");
  });
}

TEST_F(FolderChangesTest, AnItemThatWasMovedAwayOrDeletedHereIsOurs) {
  const NodeId target = makeFolder("target");
  downloaded("i:1", "moved", "1");
  downloaded("i:2", "deleted", "2");
  ASSERT_EQ(engine->edits().rename(kRootNode, "moved", target, "moved", 0), 0);
  ASSERT_EQ(engine->edits().removeFile(kRootNode, "deleted"), 0);
  look(kRootNode, [&](FolderChanges& changes) {
    EXPECT_TRUE(changes.isOurs(item("i:1", "moved")));
    EXPECT_TRUE(changes.isOurs(item("i:2", "deleted")));
    EXPECT_FALSE(changes.isOurs(item("i:3", "another's")));
  });
}

TEST_F(FolderChangesTest, AMoveIsComparedWithThePlaceInWhichTheHostHasTheItemNow) {
  const NodeId target = makeFolder("target");
  const NodeId moved = downloaded("i:1", "moved", "1");
  ASSERT_EQ(engine->edits().rename(kRootNode, "moved", target, "moved", 0), 0);
  look(kRootNode,
       [&](FolderChanges& changes) { EXPECT_TRUE(changes.isOurs(item("i:1", "renamed there"))); });
  EXPECT_EQ(change(moved)->base().place.filename, "renamed there");
  EXPECT_EQ(change(moved)->base().place.parent, root());
}

TEST_F(FolderChangesTest, WhatMayBeInTheMakingIsOursAsFarAsNameAndKindGo) {
  makeFile("new", "1");
  extension->scriptMutation(
      {.error = platform::fileProviderError(platform::NSFileProviderErrorCode::serverUnreachable),
       .done = true});
  push();
  look(kRootNode, [&](FolderChanges& changes) {
    EXPECT_TRUE(changes.isOurs(item("i:9", "new")));
    EXPECT_FALSE(changes.isOurs(item("i:9", "new", NodeKind::folder)));
    EXPECT_FALSE(changes.isOurs(item("i:9", "other")));
  });
}

TEST_F(FolderChangesTest, WhatWasMovedAwayIsKnownAndWhatWasDeletedIsNot) {
  const NodeId target = makeFolder("target");
  const NodeId moved = downloaded("i:1", "moved", "1");
  downloaded("i:2", "deleted", "2");
  ASSERT_EQ(engine->edits().rename(kRootNode, "moved", target, "moved", 0), 0);
  ASSERT_EQ(engine->edits().removeFile(kRootNode, "deleted"), 0);
  const ItemRecord next = item("i:1", "moved");
  look(kRootNode, [&](FolderChanges& changes) {
    ASSERT_TRUE(changes.movedAway(next));
    EXPECT_EQ(changes.movedAway(next)->id, moved);
    EXPECT_FALSE(changes.movedAway(item("i:1", "moved", NodeKind::folder)));
    EXPECT_FALSE(changes.movedAway(item("i:2", "deleted")));
    EXPECT_FALSE(changes.movedAway(item("i:3", "another's")));
  });
  look(target, [&](FolderChanges& changes) { EXPECT_FALSE(changes.movedAway(next)); });
}

}  // namespace
}  // namespace tulo::test
