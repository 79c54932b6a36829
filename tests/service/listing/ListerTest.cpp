#include "service/listing/Lister.h"

#include <cerrno>
#include <filesystem>
#include <future>
#include <string>
#include <vector>

#include "tests/service/support/EngineFixture.h"
#include "tests/service/support/ReplicaSql.h"
#include "tests/service/support/ScriptedProbe.h"

namespace tulo::test {
namespace {

using platform::NSFileProviderErrorCode;

// A source beside the provider, which may cut what it says of it short.
class DoubtedListerTest : public EngineFixture {
 protected:
  DoubtedListerTest() {
    options.probe = probe;
    reopen();
    for (int i = 0; i < 10; ++i)
      extension->file("i:" + std::to_string(i), std::to_string(i) + ".txt", "x");
  }

  void cutShort() {
    extension->setListingFilter([](const ScriptedItem& item) { return item.name < "5"; });
    extension->setLookUpError(fileProviderError(NSFileProviderErrorCode::noSuchItem));
  }
  void showAll() {
    extension->setListingFilter(nullptr);
    extension->setLookUpError(std::nullopt);
  }

  const std::shared_ptr<ScriptedProbe> probe = std::make_shared<ScriptedProbe>(extension);
};

class ListerTest : public EngineFixture {
 protected:
  // A database that may not grow looks like a disk without room.
  void limitPages(int count) {
    engine->replica().write(Durability::eventual, [&](ReplicaWriter& writer) {
      runSql(writer, "PRAGMA max_page_count=" + std::to_string(count));
    });
  }
};

TEST_F(ListerTest, ListsAFolderWithItsKindsSizesAndTimes) {
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

TEST_F(ListerTest, AnUnchangedListingWritesNothingAndTellsNothing) {
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

TEST_F(ListerTest, AnEmptyListingIsNotBelievedWhileTheProviderStillKnowsTheChildren) {
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

TEST_F(ListerTest, AnIndexThatIsGoneTakesNothingAway) {
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

TEST_F(ListerTest, AnErrorOfTheProviderKeepsWhatIsKnown) {
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

TEST_F(ListerTest, WithoutRoomForTheRowsItSaysSoAndTheStatusRepeatsIt) {
  for (int i = 0; i < 500; ++i)
    extension->file("i:" + std::to_string(i), std::string(200, 'n') + std::to_string(i), "");
  limitPages(1);
  EXPECT_EQ(refresh(), ENOSPC);
  EXPECT_EQ(engine->sync().statistics().lastError, ENOSPC);
  EXPECT_EQ(engine->sync().freshness(kRootNode, 0), Freshness::unknown);
  EXPECT_TRUE(names().empty());
  limitPages(1'000'000);
  // The sweep tries again although nothing was committed.
  EXPECT_TRUE(engine->sync().sweepStep());
  EXPECT_EQ(engine->sync().statistics().lastError, 0);
  EXPECT_EQ(names().size(), 500U);
}

TEST_F(ListerTest, AFileAndANodeThatIsGoneCannotBeListed) {
  extension->file("i:1", "a.txt", "hello");
  ASSERT_EQ(refresh(), 0);
  EXPECT_EQ(refresh(idOf("i:1")), ESTALE);
  EXPECT_EQ(refresh(NodeId(4711)), ESTALE);
  // That is no reason to try again.
  while (engine->sync().sweepStep()) {
  }
  EXPECT_EQ(engine->sync().statistics().lastError, ESTALE);
}

TEST_F(ListerTest, WhoAsksForALaterCommitWhileAListingRunsGetsOneThatShowsIt) {
  extension->file("i:1", "a.txt", "hello");
  std::promise<int> done;
  extension->afterNextListing([&] {
    extension->file("i:2", "b.txt", "b");
    commit();
    engine->sync().refresh(kRootNode, [&](int error) { done.set_value(error); });
  });
  ASSERT_EQ(refresh(), 0);
  EXPECT_EQ(done.get_future().get(), 0);
  EXPECT_EQ(names().size(), 2U);
  EXPECT_EQ(engine->sync().statistics().listings, 2U);
}

TEST_F(ListerTest, TellsWhereSomethingTurnedOutToBeDifferent) {
  std::vector<NodeId> told;
  engine->sync().whenReconciled([&](NodeId folder) { told.push_back(folder); });
  extension->file("i:1", "a.txt", "hello");
  refresh();
  EXPECT_TRUE(told.empty());
  extension->file("i:2", "b.txt", "b");
  commit();
  refresh();
  commit();
  refresh();
  EXPECT_EQ(told, std::vector<NodeId>{kRootNode});
}

TEST_F(ListerTest, AFolderThatAppearsInOneThatIsKeptIsKeptUpToDateAsWell) {
  extension->folder("f:1", "Docs");
  refresh();
  ASSERT_EQ(engine->pins().setPinned(idOf("f:1"), true), 0);
  extension->folder("f:2", "Deep", "f:1");
  commit();
  refresh(idOf("f:1"));
  // The housekeeping lists what it has never seen.
  refresh(idOf("f:2"));
  extension->file("i:1", "later.txt", "x", "f:2");
  commit();
  while (engine->sync().sweepStep()) {
  }
  EXPECT_EQ(names(idOf("f:2")).size(), 1U);
}

TEST_F(DoubtedListerTest, WhatIsMissingWhileTheSourceCannotBeReadStays) {
  ASSERT_EQ(refresh(), 0);
  for (const int number : {EMFILE, EIO, EHOSTDOWN}) {
    cutShort();
    probe->setError(number);
    commit();
    EXPECT_EQ(refresh(), number);
    EXPECT_EQ(names().size(), 10U);
  }
  probe->setError(0);
  showAll();
  extension->remove("i:7");
  EXPECT_TRUE(engine->sync().sweepStep());
  EXPECT_EQ(names().size(), 9U);
}

TEST_F(DoubtedListerTest, AListingThatIsCutShortIsNotBelievedThoughTheSourceCanBeRead) {
  ASSERT_EQ(refresh(), 0);
  cutShort();
  commit();
  EXPECT_EQ(refresh(), EIO);
  EXPECT_EQ(names().size(), 10U);
}

TEST_F(DoubtedListerTest, NeitherIsTheFirstListingOfAFolder) {
  cutShort();
  EXPECT_EQ(refresh(), EIO);
  EXPECT_TRUE(names().empty());
  EXPECT_EQ(engine->sync().freshness(kRootNode, 0), Freshness::unknown);
  showAll();
  EXPECT_EQ(refresh(), 0);
  EXPECT_EQ(names().size(), 10U);
}

TEST_F(DoubtedListerTest, AProviderThatFailsForAMomentIsAskedAgain) {
  cutShort();
  probe->whenAsked([this] { showAll(); });
  EXPECT_EQ(refresh(), 0);
  EXPECT_EQ(names().size(), 10U);
  EXPECT_EQ(extension->listingCount(), 2U);
}

TEST_F(DoubtedListerTest, WhatComesWhileAFolderIsListedIsNoReasonToDoubtForEver) {
  int made = 0;
  probe->whenAsked([&] {
    ++made;
    extension->file("n:" + std::to_string(made), "n" + std::to_string(made), "");
  });
  EXPECT_EQ(refresh(), 0);
  EXPECT_GE(names().size(), 10U);
}

TEST_F(DoubtedListerTest, AnUnchangedListingCostsNoQuestion) {
  ASSERT_EQ(refresh(), 0);
  const unsigned before = probe->questions();
  commit();
  ASSERT_EQ(refresh(), 0);
  EXPECT_EQ(probe->questions(), before);
}

}  // namespace
}  // namespace tulo::test
