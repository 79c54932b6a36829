#include "service/listing/RowUpdates.h"

#include <cerrno>
#include <chrono>
#include <future>

#include "tests/service/support/EngineFixture.h"

namespace tulo::test {
namespace {

class RowUpdatesTest : public EngineFixture {};

TEST_F(RowUpdatesTest, ARenameKeepsTheNumberAndInvalidatesBothNames) {
  extension->file("i:1", "a.txt", "hello");
  refresh();
  const NodeId id = idOf("i:1");
  extension->change("i:1", [](ScriptedItem& item) { item.name = "z.txt"; });
  commit();
  refresh();
  EXPECT_EQ(names(), (std::map<std::string, NodeId>{{"z.txt", id}}));
  const auto told = delivered();
  EXPECT_TRUE(told.has(entryChanged(kRootNode, "a.txt")));
  EXPECT_TRUE(told.has(entryChanged(kRootNode, "z.txt")));
}

TEST_F(RowUpdatesTest, TwoItemsThatExchangeTheirNamesKeepTheirNumbers) {
  extension->file("i:1", "a", "1");
  extension->file("i:2", "b", "2");
  refresh();
  const NodeId one = idOf("i:1");
  const NodeId two = idOf("i:2");
  extension->change("i:1", [](ScriptedItem& item) { item.name = "b"; });
  extension->change("i:2", [](ScriptedItem& item) { item.name = "a"; });
  commit();
  ASSERT_EQ(refresh(), 0);
  EXPECT_EQ(names(), (std::map<std::string, NodeId>{{"b", one}, {"a", two}}));
}

TEST_F(RowUpdatesTest, ANewVersionDropsContentsAndPages) {
  extension->file("i:1", "a.txt", "hello");
  refresh();
  const NodeId id = idOf("i:1");
  EXPECT_EQ(readThrough(id), "hello");
  delivered();
  extension->edit("i:1", "good-bye");
  commit();
  refresh();
  EXPECT_EQ(row(id)->state, ContentState::dataless);
  EXPECT_EQ(row(id)->size, 8);
  EXPECT_TRUE(delivered().has(dataChanged(id)));
  EXPECT_EQ(readThrough(id), "good-bye");
}

TEST_F(RowUpdatesTest, AnOpenFileStaysWholeAndTheNameGoesOnUnderAnotherNumber) {
  extension->file("i:1", "a.txt", "old contents");
  refresh();
  const NodeId before = idOf("i:1");
  const OpenAnswer open = openFile(before);
  ASSERT_EQ(open.error, 0);
  extension->edit("i:1", "new");
  commit();
  refresh();
  const NodeId after = idOf("i:1");
  EXPECT_NE(after, before);
  EXPECT_TRUE(delivered().has(entryChanged(kRootNode, "a.txt")));
  EXPECT_EQ(readThrough(after), "new");
  while (engine->contents().purgeStep()) {
  }
  EXPECT_EQ(contentsOf(*open.file), "old contents");
  EXPECT_EQ(engine->openFiles().leftBehind(before)->size, 12);
  EXPECT_EQ(openFile(before).error, ESTALE);
}

TEST_F(RowUpdatesTest, ContentsChangeOnlyWhileNobodyIsOpeningAFile) {
  extension->file("i:1", "a.txt", "hello");
  refresh();
  const NodeId id = idOf("i:1");
  EXPECT_EQ(readThrough(id), "hello");
  extension->edit("i:1", "good-bye");
  commit();
  std::future<int> listed;
  {
    const SharedLock opening(engine->openFiles().gate());
    listed = std::async(std::launch::async, [&] { return refresh(); });
    EXPECT_EQ(listed.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    EXPECT_EQ(row(id)->state, ContentState::downloaded);
  }
  EXPECT_EQ(listed.get(), 0);
  EXPECT_EQ(row(id)->state, ContentState::dataless);
}

TEST_F(RowUpdatesTest, OtherPropertiesChangeWhileFilesAreBeingOpened) {
  extension->file("i:1", "a.txt", "hello");
  refresh();
  extension->change("i:1", [](ScriptedItem& item) { item.capabilities = 3; });
  commit();
  const SharedLock opening(engine->openFiles().gate());
  EXPECT_EQ(refresh(), 0);
  EXPECT_EQ(node("i:1")->capabilities, 3U);
  EXPECT_TRUE(delivered().has(attributesChanged(idOf("i:1"))));
}

TEST_F(RowUpdatesTest, AVersionThatWasNotKnownSaysNothingOfTheContentsHere) {
  extension->file("i:1", "a.txt", "ours!");
  refresh();
  const NodeId id = idOf("i:1");
  EXPECT_EQ(readThrough(id), "ours!");
  // As after a reply that came before the host's index had the row.
  engine->replica().write(Durability::eventual,
                          [&](ReplicaWriter& writer) { writer.setVersions(id, "", ""); });
  extension->edit("i:1", "other");
  commit();
  refresh();
  EXPECT_EQ(readThrough(idOf("i:1")), "other");
}

// A folder that leaves the account and comes back, while the kernel holds it.
class ReturningFolderTest : public EngineFixture {
 protected:
  ReturningFolderTest() {
    extension->folder("f:1", "Docs");
    extension->folder("f:2", "Deep", "f:1");
    extension->file("i:1", "a.txt", "hello", "f:1");
    listAll();
  }

  void listAll() {
    commit();
    refresh();
    for (const char* folder : {"f:1", "f:2"}) {
      if (const NodeId id = idOf(folder); id != kNoNode) refresh(id);
    }
  }
  // `seen`: its own listing is looked at while it is away.
  void leave(bool seen) {
    extension->remove("f:1");
    extension->remove("f:2");
    extension->remove("i:1");
    commit();
    if (seen) refresh(idOf("f:1"));
    refresh();
    EXPECT_TRUE(names().empty());
  }
  void comeBack() {
    extension->folder("f:1", "Docs");
    extension->folder("f:2", "Deep", "f:1");
    extension->file("i:1", "a.txt", "hello", "f:1");
    listAll();
  }
};

TEST_F(ReturningFolderTest, OneThatTheKernelHoldsIsAnotherFolderToIt) {
  for (const bool seen : {false, true}) {
    const NodeId folder = idOf("f:1");
    const NodeId deep = idOf("f:2");
    const NodeId file = idOf("i:1");
    engine->folders().remembered(folder);
    engine->folders().remembered(deep);
    leave(seen);
    comeBack();
    EXPECT_NE(idOf("f:1"), folder);
    EXPECT_EQ(names(idOf("f:1")).size(), 2U);
    EXPECT_EQ(idOf("i:1"), file);
    // Nobody was told that this one is gone, but where its own folder showed empty.
    EXPECT_EQ(idOf("f:2") != deep, seen);
  }
}

TEST_F(ReturningFolderTest, OneThatTheKernelDoesNotHoldKeepsItsNumber) {
  const NodeId folder = idOf("f:1");
  leave(true);
  comeBack();
  EXPECT_EQ(idOf("f:1"), folder);
  EXPECT_EQ(names(folder).size(), 2U);
}

TEST_F(ReturningFolderTest, OneThatIsKeptUpToDateStaysSo) {
  ASSERT_EQ(engine->pins().setPinned(idOf("f:1"), true), 0);
  engine->folders().remembered(idOf("f:1"));
  leave(false);
  comeBack();
  extension->file("i:2", "b.txt", "later", "f:1");
  commit();
  while (engine->sync().sweepStep()) {
  }
  EXPECT_EQ(names(idOf("f:1")).size(), 3U);
}

// The folder that it left was not listed in between, and shows the same as before.
TEST_F(RowUpdatesTest, WhatGoesToAnotherFolderAndBackIsWhereItWas) {
  extension->folder("f:1", "folder");
  extension->file("i:1", "a.txt", "hello");
  refresh();
  const NodeId folder = idOf("f:1");
  refresh(folder);
  for (const std::string& parent : {std::string("f:1"), ScriptedExtension::root()}) {
    extension->change("i:1", [&](ScriptedItem& item) { item.parent = parent; });
    commit();
    refresh(folder);
  }
  refresh();
  EXPECT_EQ(names().count("a.txt"), 1U);
  EXPECT_TRUE(names(folder).empty());
}

}  // namespace
}  // namespace tulo::test
