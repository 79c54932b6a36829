#include "service/listing/Sync.h"

#include <cerrno>
#include <filesystem>

#include "tests/service/support/EngineFixture.h"
#include "tests/service/support/ReplicaSql.h"

namespace tulo::test {
namespace {

using platform::NSFileProviderErrorCode;

class SyncTest : public EngineFixture {};

TEST_F(SyncTest, ListsAFolderWithItsKindsSizesAndTimes) {
  extension->folder("f:1", "Docs");
  extension->file("i:1", "a.txt", "hello");
  ASSERT_EQ(refresh(), 0);
  EXPECT_EQ(names().size(), 2U);
  const Node file = *node("i:1");
  EXPECT_EQ(file.kind, NodeKind::file);
  EXPECT_EQ(file.size, 5);
  EXPECT_EQ(file.modified.whole, WallSeconds(seconds(1'700'000'000)));
  EXPECT_EQ(file.blocks, 0);
  EXPECT_EQ(file.contentVersion, "1");
  EXPECT_EQ(node("f:1")->kind, NodeKind::folder);
  EXPECT_EQ(row(kRootNode)->listed, engine->sync().generation());
}

TEST_F(SyncTest, AFirstListingTellsTheKernelNothing) {
  extension->file("i:1", "a.txt", "hello");
  refresh();
  EXPECT_TRUE(delivered().all.empty());
}

TEST_F(SyncTest, AnUnchangedListingWritesNothingAndTellsNothing) {
  extension->file("i:1", "a.txt", "hello");
  refresh();
  const Node before = *row(kRootNode);
  commit();
  ASSERT_EQ(refresh(), 0);
  EXPECT_EQ(engine->sync().statistics().unchanged, 1U);
  EXPECT_TRUE(delivered().all.empty());
  EXPECT_EQ(row(kRootNode)->modified, before.modified);
  EXPECT_EQ(engine->sync().freshness(kRootNode, 0), Freshness::current);
}

TEST_F(SyncTest, ANewItemInvalidatesItsNameAndTheListing) {
  extension->file("i:1", "a.txt", "hello");
  refresh();
  extension->file("i:2", "b.txt", "b");
  commit();
  refresh();
  const auto told = delivered();
  EXPECT_TRUE(told.has(entryChanged(kRootNode, "b.txt")));
  EXPECT_TRUE(told.has(dataChanged(kRootNode)));
  EXPECT_EQ(told.all.size(), 2U);
}

TEST_F(SyncTest, ARenameKeepsTheNumberAndInvalidatesBothNames) {
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

TEST_F(SyncTest, TwoItemsThatExchangeTheirNamesKeepTheirNumbers) {
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

TEST_F(SyncTest, ADeletedItemIsToldAsADeletion) {
  extension->file("i:1", "a.txt", "hello");
  refresh();
  const NodeId id = idOf("i:1");
  extension->remove("i:1");
  commit();
  refresh();
  EXPECT_TRUE(names().empty());
  EXPECT_TRUE(delivered().has(entryDeleted(kRootNode, id, "a.txt")));
}

TEST_F(SyncTest, AMoveKeepsNumberAndContentsWhicheverFolderIsListedFirst) {
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

TEST_F(SyncTest, TwoItemsOfOneNameAreBothShownAndTheMarkGoesWithTheOther) {
  extension->folder("f:1", "same.d");
  extension->file("i:1", "same.d", "x");
  ASSERT_EQ(refresh(), 0);
  ASSERT_EQ(names().size(), 2U);
  EXPECT_EQ(names().count("same.d"), 1U);
  const NodeId file = idOf("i:1");
  const NodeId folder = idOf("f:1");
  const NodeId plain = names()["same.d"];
  EXPECT_EQ(row(file)->filename, "same.d");
  extension->remove(plain == file ? "i:1" : "f:1");
  commit();
  refresh();
  EXPECT_EQ(names(), (std::map<std::string, NodeId>{{"same.d", plain == file ? folder : file}}));
}

TEST_F(SyncTest, AmongManyNewItemsAMovedOneAndTwoOfOneNameFindTheirPlaces) {
  extension->folder("f:1", "Docs");
  extension->file("i:moved", "moved.txt", "hello");
  refresh();
  const NodeId docs = idOf("f:1");
  const NodeId moved = idOf("i:moved");
  constexpr int kCount = 100;
  for (int i = 0; i < kCount; ++i) {
    const std::string number = std::to_string(i);
    const std::string name = i == 40 ? "n3" : "n" + number;
    extension->file("i:" + number, name, number, "f:1");
  }
  extension->change("i:moved", [](ScriptedItem& item) { item.parent = "f:1"; });
  commit();
  ASSERT_EQ(refresh(docs), 0);
  const auto all = names(docs);
  EXPECT_EQ(all.size(), kCount + 1U);
  EXPECT_EQ(all.at("moved.txt"), moved);
  EXPECT_TRUE(all.at("n3") == idOf("i:3") || all.at("n3") == idOf("i:40"));
  for (int i = 0; i < kCount; ++i) {
    const auto item = node("i:" + std::to_string(i));
    ASSERT_TRUE(item) << i;
    EXPECT_EQ(item->filename, i == 40 ? "n3" : "n" + std::to_string(i));
    EXPECT_EQ(item->size, static_cast<std::int64_t>(std::to_string(i).size()));
    EXPECT_EQ(all.at(item->name), item->id);
  }
}

TEST_F(SyncTest, NamesThatAFolderCannotHoldAreSpelledOut) {
  extension->file("i:1", "a/b", "x");
  extension->file("i:2", "..", "y");
  refresh();
  EXPECT_EQ(names().count("a%2Fb"), 1U);
  EXPECT_EQ(names().count("%2E%2E"), 1U);
  EXPECT_EQ(node("i:1")->filename, "a/b");
}

TEST_F(SyncTest, AnItemThatBecomesAFolderGetsAnotherNumber) {
  extension->file("x", "thing", "1");
  refresh();
  const NodeId before = idOf("x");
  extension->folder("x", "thing");
  commit();
  ASSERT_EQ(refresh(), 0);
  ASSERT_EQ(names().size(), 1U);
  EXPECT_NE(names()["thing"], before);
  EXPECT_EQ(row(names()["thing"])->kind, NodeKind::folder);
}

TEST_F(SyncTest, ANewVersionDropsContentsAndPages) {
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

TEST_F(SyncTest, AnOpenFileStaysWholeAndTheNameGoesOnUnderAnotherNumber) {
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

TEST_F(SyncTest, AnEmptyListingIsNotBelievedWhileTheProviderStillKnowsTheChildren) {
  extension->folder("f:1", "Docs");
  extension->file("i:1", "a.txt", "hello");
  refresh();
  extension->setListingFilter([](const ScriptedItem&) { return false; });
  commit();
  EXPECT_EQ(refresh(), EAGAIN);
  EXPECT_EQ(names().size(), 2U);
  // A listing that lost one table only.
  extension->setListingFilter([](const ScriptedItem& item) { return item.isFolder; });
  commit();
  EXPECT_EQ(refresh(), EAGAIN);
  EXPECT_EQ(names().size(), 2U);
  extension->setListingFilter(nullptr);
  extension->file("i:2", "b.txt", "b");
  EXPECT_TRUE(engine->sync().sweepStep());
  EXPECT_EQ(names().size(), 3U);
}

TEST_F(SyncTest, AnIndexThatIsGoneTakesNothingAway) {
  extension->file("i:1", "a.txt", "hello");
  refresh();
  std::filesystem::remove(directory.file("state.db"));
  engine->sync().checkSource();
  extension->remove("i:1");
  EXPECT_EQ(refresh(), EHOSTDOWN);
  EXPECT_EQ(names().count("a.txt"), 1U);
  commit();
  EXPECT_EQ(refresh(), 0);
  EXPECT_TRUE(names().empty());
}

TEST_F(SyncTest, AnErrorOfTheProviderKeepsWhatIsKnown) {
  extension->file("i:1", "a.txt", "hello");
  refresh();
  extension->setListingError(fileProviderError(NSFileProviderErrorCode::notAuthenticated));
  commit();
  EXPECT_EQ(refresh(), EKEYREJECTED);
  EXPECT_EQ(names().count("a.txt"), 1U);
  extension->setListingError(std::nullopt);
  extension->file("i:2", "b.txt", "b");
  // The sweep tries the failed folder again although nothing was committed.
  EXPECT_TRUE(engine->sync().sweepStep());
  EXPECT_EQ(names().count("b.txt"), 1U);
}

TEST_F(SyncTest, SweepsWhatTheKernelKnowsAndNothingElse) {
  for (const char* number : {"1", "2", "3"}) {
    extension->folder(std::string("f:") + number, number);
  }
  refresh();
  for (const char* number : {"1", "2", "3"})
    refresh(idOf(std::string("f:") + number));
  engine->folders().remembered(idOf("f:1"));
  engine->folders().remembered(idOf("f:3"));
  engine->folders().used(idOf("f:1"));
  commit();
  const std::size_t before = extension->listingCount();
  while (engine->sync().sweepStep()) {
  }
  // The root is always known.
  EXPECT_EQ(extension->listingCount() - before, 3U);
  EXPECT_EQ(engine->sync().freshness(idOf("f:1"), 0), Freshness::current);
  EXPECT_EQ(engine->sync().freshness(idOf("f:2"), 0), Freshness::older);
  EXPECT_EQ(engine->sync().statistics().staleFolders, 0U);
}

TEST_F(SyncTest, ARestartTrustsTheLastRunOnlyIfTheSourceLooksTheSame) {
  extension->file("i:1", "a.txt", "hello");
  // Times tell commits apart only once the file is no longer brand-new.
  const auto old = std::filesystem::file_time_type::clock::now() - std::chrono::hours(1);
  std::filesystem::last_write_time(directory.file("state.db"), old);
  engine->sync().checkSource();
  refresh();
  reopen();
  EXPECT_EQ(engine->sync().freshness(kRootNode, row(kRootNode)->listed), Freshness::current);
  engine.reset();
  commit();
  open();
  EXPECT_EQ(engine->sync().freshness(kRootNode, row(kRootNode)->listed), Freshness::unknown);
}

TEST_F(SyncTest, NumbersAreNeverGivenOutAgain) {
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

TEST_F(SyncTest, WhatIsInADeletedFolderGoesWithIt) {
  extension->folder("f:1", "Docs");
  extension->folder("f:2", "Deep", "f:1");
  extension->file("i:1", "a.txt", "hello", "f:2");
  refresh();
  refresh(idOf("f:1"));
  refresh(idOf("f:2"));
  EXPECT_EQ(readThrough(idOf("i:1")), "hello");
  EXPECT_GT(engine->store().used(), 0);
  for (const char* identifier : {"i:1", "f:2", "f:1"})
    extension->remove(identifier);
  commit();
  refresh();
  engine->replica().write(Durability::eventual, [](ReplicaWriter& writer) {
    runSql(writer, "UPDATE node SET detached=1 WHERE detached IS NOT NULL");
  });
  while (engine->contents().purgeStep()) {
  }
  EXPECT_FALSE(node("i:1"));
  EXPECT_EQ(engine->store().used(), 0);
}

}  // namespace
}  // namespace tulo::test
