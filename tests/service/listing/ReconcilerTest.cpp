#include "service/listing/Reconciler.h"

#include "tests/service/support/ReplicaSql.h"
#include "tests/service/support/WritingFixture.h"

namespace tulo::test {
namespace {

class ReconcilerTest : public EngineFixture {};

TEST_F(ReconcilerTest, AFirstListingTellsTheKernelNothing) {
  extension->file("i:1", "a.txt", "hello");
  refresh();
  EXPECT_TRUE(delivered().all.empty());
}

TEST_F(ReconcilerTest, AMoveKeepsNumberAndContentsWhicheverFolderIsListedFirst) {
  for (const bool sourceFirst : {false, true}) {
    const std::string suffix = sourceFirst ? "s" : "t";
    const std::string from = extension->folder("f:from" + suffix, "from" + suffix);
    const std::string to = extension->folder("f:to" + suffix, "to" + suffix);
    const std::string moved = extension->file("i:" + suffix, "a.txt", "hello", from);
    commit();
    refresh();
    refresh(idOf(from));
    refresh(idOf(to));
    const NodeId id = idOf(moved);
    EXPECT_EQ(readThrough(id), "hello");
    extension->change(moved, [&](ScriptedItem& item) { item.parent = to; });
    commit();
    refresh(idOf(sourceFirst ? from : to));
    refresh(idOf(sourceFirst ? to : from));
    EXPECT_TRUE(names(idOf(from)).empty());
    EXPECT_EQ(names(idOf(to)), (std::map<std::string, NodeId>{{"a.txt", id}}));
    EXPECT_EQ(row(id)->state, ContentState::downloaded);
  }
  EXPECT_EQ(extension->fetchCount(), 2U);
}

TEST_F(ReconcilerTest, NumbersAreNeverGivenOutAgain) {
  extension->file("i:1", "a.txt", "hello");
  refresh();
  const NodeId first = idOf("i:1");
  extension->remove("i:1");
  commit();
  refresh();
  engine->replica().write(Durability::eventual, [](ReplicaWriter& writer) {
    runSql(writer, "UPDATE node SET detached=1 WHERE detached IS NOT NULL");
  });
  EXPECT_TRUE(engine->contents().purgeStep());
  EXPECT_FALSE(row(first));
  reopen();
  extension->file("i:2", "b.txt", "hello");
  commit();
  refresh();
  EXPECT_GT(idOf("i:2"), first);
}

TEST_F(ReconcilerTest, WhatWasAcknowledgedSinceTheListingBeganStaysAndTheFolderIsListedAgain) {
  extension->file("i:1", "a.txt", "hello");
  refresh();
  Acknowledged acknowledged;
  const Acknowledged::Watch watch(acknowledged);
  acknowledged.note("i:1");
  const Listing empty;
  Reconciler reconciler(engine->replica(), engine->openFiles(), engine->folders(), engine->store());
  const auto result = reconciler.reconcile({kRootNode, empty, "digest", {7, "mark"}, watch});
  EXPECT_TRUE(result.outdated);
  EXPECT_TRUE(result.invalidations.empty());
  EXPECT_EQ(names().count("a.txt"), 1U);
  // No listing equals this one.
  EXPECT_EQ(row(kRootNode)->digest, "");
  EXPECT_EQ(row(kRootNode)->listed, 7U);
}

TEST_F(ReconcilerTest, AFolderThatIsGoneMeanwhileIsLeftAlone) {
  Acknowledged acknowledged;
  const Acknowledged::Watch watch(acknowledged);
  Listing listing;
  listing.items.emplace_back().identifier = "i:1";
  Reconciler reconciler(engine->replica(), engine->openFiles(), engine->folders(), engine->store());
  const auto result = reconciler.reconcile({NodeId(4711), listing, "digest", {7, ""}, watch});
  EXPECT_FALSE(result.outdated);
  EXPECT_FALSE(node("i:1"));
}

// What somebody made at the host of root/A/B: root/B/A, in two moves.
class ReconcilerCircleTest : public EngineFixture {
 protected:
  ReconcilerCircleTest() {
    extension->folder("f:A", "A");
    extension->folder("f:B", "B", "f:A");
    extension->file("i:1", "a.txt", "hello", "f:B");
    refresh();
    refresh(idOf("f:A"));
    refresh(idOf("f:B"));
    file = idOf("i:1");
    EXPECT_EQ(readThrough(file), "hello");
  }

  void exchange() {
    extension->change("f:B", [](ScriptedItem& item) { item.parent = ScriptedExtension::root(); });
    extension->change("f:A", [](ScriptedItem& item) { item.parent = "f:B"; });
    commit();
  }

  bool isBelow(NodeId node, NodeId folder) {
    for (int i = 0; i < 10 && node != kRootNode && node != kNoNode; ++i) {
      if (node == folder) return i > 0;
      node = row(node)->parent;
    }
    return false;
  }

  NodeId file = kNoNode;
};

TEST_F(ReconcilerCircleTest, FoldersThatChangedPlacesAreNeverInOneAnother) {
  const NodeId a = idOf("f:A");
  const NodeId b = idOf("f:B");
  exchange();
  for (const NodeId folder : {b, a, kRootNode, b, a}) {
    refresh(folder);
    EXPECT_FALSE(isBelow(a, b) && isBelow(b, a));
  }
  EXPECT_EQ(names(), (std::map<std::string, NodeId>{{"B", b}}));
  EXPECT_EQ(names(b), (std::map<std::string, NodeId>{{"A", a}, {"a.txt", file}}));
  EXPECT_TRUE(names(a).empty());
  EXPECT_EQ(row(file)->state, ContentState::downloaded);
}

TEST_F(ReconcilerCircleTest, WhateverIsListedFirst) {
  const NodeId a = idOf("f:A");
  const NodeId b = idOf("f:B");
  exchange();
  for (const NodeId folder : {kRootNode, b, a})
    refresh(folder);
  EXPECT_EQ(names(), (std::map<std::string, NodeId>{{"B", b}}));
  EXPECT_EQ(names(b), (std::map<std::string, NodeId>{{"A", a}, {"a.txt", file}}));
}

TEST_F(ReconcilerCircleTest, AMoveThatIsStillToBeSentIsNotUndone) {
  // Here B goes out of A and back, so that A is in B at the host while B is to go into A.
  options.readWrite = true;
  reopen();
  extension->change("f:B", [](ScriptedItem& item) { item.parent = ScriptedExtension::root(); });
  commit();
  refresh();
  refresh(idOf("f:A"));
  const NodeId a = idOf("f:A");
  const NodeId b = idOf("f:B");
  ASSERT_EQ(engine->edits().rename(kRootNode, "B", a, "B", 0), 0);
  extension->change("f:A", [](ScriptedItem& item) { item.parent = "f:B"; });
  commit();
  refresh(b);
  EXPECT_FALSE(isBelow(a, b));
  EXPECT_TRUE(isBelow(b, a));
  refresh();
  refresh(b);
  for (const NodeId node : {a, b})
    EXPECT_FALSE(isBelow(node, node));
  EXPECT_EQ(row(file)->parent, b);
  EXPECT_TRUE(isBelow(file, b));
}

// A file that was moved here into a folder that the host has not heard of yet, while the host goes
// on with it in the one in which it has it.
class ReconcilerMoveTest : public WritingFixture {
 protected:
  ReconcilerMoveTest() {
    target = makeFolder("target");
    file = downloaded("i:1", "a.txt", "old");
    EXPECT_EQ(engine->edits().rename(kRootNode, "a.txt", target, "b.txt", 0), 0);
  }

  NodeId target = kNoNode;
  NodeId file = kNoNode;
};

TEST_F(ReconcilerMoveTest, ItIsReadAsTheHostHasItNow) {
  extension->edit("i:1", "another version");
  list();
  EXPECT_EQ(row(file)->parent, target);
  EXPECT_EQ(row(file)->name, "b.txt");
  EXPECT_EQ(readThrough(file), "another version");
  pushAll();
  EXPECT_EQ(hostContents("b.txt"), "another version");
}

TEST_F(ReconcilerMoveTest, WhatGrowsFromThatVersionIsNoConflict) {
  extension->edit("i:1", "another version");
  list();
  EXPECT_EQ(readThrough(file), "another version");
  write(file, "edited");
  pushAll();
  EXPECT_EQ(hostContents("b.txt"), "edited");
  EXPECT_EQ(names(target).size(), 1U);
}

TEST_F(ReconcilerMoveTest, WhatWasChangedHereStays) {
  write(file, "from here");
  extension->edit("i:1", "another version");
  list();
  EXPECT_EQ(contentsOf(file), "from here");
  EXPECT_EQ(row(file)->size, 9);
  pushAll();
  EXPECT_EQ(extension->find("i:1")->contents, "another version");
  EXPECT_EQ(row(file)->state, ContentState::downloaded);
  EXPECT_EQ(contentsOf(file), "from here");
}

TEST_F(ReconcilerMoveTest, WhatIsOpenForWritingStays) {
  const auto writable = open(file);
  engine->openFiles().openedForWriting(file);
  extension->edit("i:1", "another version");
  list();
  EXPECT_EQ(row(file)->size, 3);
  engine->openFiles().closedForWriting(file);
  close(file);
  EXPECT_EQ(contentsOf(file), "old");
}

TEST_F(ReconcilerMoveTest, WhoHasItOpenKeepsItWhole) {
  const OpenAnswer before = openFile(file);
  ASSERT_EQ(before.error, 0);
  extension->edit("i:1", "another version");
  list();
  EXPECT_EQ(EngineFixture::contentsOf(*before.file), "old");
  const NodeId now = named("b.txt", target);
  EXPECT_NE(now, file);
  EXPECT_EQ(readThrough(now), "another version");
  EXPECT_TRUE(change(now)) << "the move is still to be sent";
}

}  // namespace
}  // namespace tulo::test
