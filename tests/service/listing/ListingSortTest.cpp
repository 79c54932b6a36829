#include "service/listing/ListingSort.h"

#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "tests/service/support/WritingFixture.h"

namespace tulo::test {
namespace {

class ListingSortTest : public WritingFixture {
 protected:
  // Sorts out what the host has in the root now.
  const SortedListing& sort() {
    enumerate(*extension, root(), [&](Listing all) { listing = std::move(all); });
    engine->replica().write(Durability::eventual, [&](ReplicaWriter& writer) {
      children = writer.childNodes(kRootNode);
      FolderChanges changes(writer, *writer.node(kRootNode));
      sorted = sortOut({listing, children, newer, changes, engine->openFiles()});
    });
    return sorted;
  }

  Listing listing;
  std::vector<Node> children;
  std::unordered_set<std::string> newer;
  SortedListing sorted;
};

TEST_F(ListingSortTest, TellsWhatIsNewDifferentAndMissingAndSaysNothingOfTheRest) {
  for (const char* number : {"1", "2", "3"})
    extension->file(std::string("i:") + number, number, "hello");
  list();
  extension->remove("i:1");
  extension->edit("i:2", "good-bye");
  extension->file("i:4", "4", "");
  sort();
  ASSERT_EQ(sorted.missing.size(), 1U);
  EXPECT_EQ(sorted.missing.front()->identifier, "i:1");
  ASSERT_EQ(sorted.kept.size(), 1U);
  EXPECT_EQ(sorted.kept.front().item->identifier, "i:2");
  EXPECT_FALSE(sorted.kept.front().renamed);
  ASSERT_EQ(sorted.fresh.size(), 1U);
  EXPECT_EQ(sorted.fresh.front()->identifier, "i:4");
  EXPECT_FALSE(sorted.incomplete);
  EXPECT_FALSE(sorted.outdated);
}

TEST_F(ListingSortTest, AnItemOfAnotherKindIsNewAndTheFormerOneMissing) {
  extension->file("x", "thing", "1");
  list();
  extension->folder("x", "thing");
  sort();
  EXPECT_EQ(sorted.fresh.size(), 1U);
  EXPECT_EQ(sorted.missing.size(), 1U);
}

TEST_F(ListingSortTest, ANameThatWasGivenHereStaysAndTheRestFollowsTheHost) {
  downloaded("i:1", "old", "hello");
  ASSERT_EQ(rename("old", "new"), 0);
  extension->change("i:1", [](ScriptedItem& item) { item.capabilities = 3; });
  sort();
  ASSERT_EQ(sorted.kept.size(), 1U);
  EXPECT_EQ(sorted.kept.front().item->filename, "new");
  EXPECT_EQ(sorted.kept.front().item->capabilities, 3U);
  EXPECT_FALSE(sorted.incomplete);
}

TEST_F(ListingSortTest, ContentsThatWereChangedHereStayAndTheListingIsLookedAtAgain) {
  const NodeId id = downloaded("i:1", "a.txt", "hello");
  write(id, "from here");
  extension->edit("i:1", "from there, and longer");
  sort();
  for (const KeptItem& kept : sorted.kept)
    EXPECT_EQ(kept.item->size, 9);
  EXPECT_TRUE(sorted.incomplete);
}

TEST_F(ListingSortTest, WhatIsBeingWrittenStaysThoughNoChangeIsNotedYet) {
  const NodeId id = downloaded("i:1", "a.txt", "hello");
  engine->openFiles().opened(id, row(id)->content);
  engine->openFiles().openedForWriting(id);
  extension->edit("i:1", "good-bye");
  sort();
  EXPECT_TRUE(sorted.incomplete);
  for (const KeptItem& kept : sorted.kept)
    EXPECT_EQ(kept.item->contentVersion, "1");
  engine->openFiles().closedForWriting(id);
  engine->openFiles().closed(id, row(id)->content);
}

TEST_F(ListingSortTest, WhatTheHostAcknowledgedMeanwhileIsLeftAsItIs) {
  for (const char* number : {"1", "2"})
    extension->file(std::string("i:") + number, number, "hello");
  list();
  extension->remove("i:1");
  extension->edit("i:2", "good-bye");
  extension->file("i:3", "3", "");
  newer = {"i:1", "i:2", "i:3"};
  sort();
  EXPECT_TRUE(sorted.missing.empty());
  EXPECT_TRUE(sorted.kept.empty());
  EXPECT_TRUE(sorted.fresh.empty());
  EXPECT_TRUE(sorted.incomplete);
  EXPECT_TRUE(sorted.outdated);
}

TEST_F(ListingSortTest, OfSeveralThatMayBeBeingMadeHereAllButOneAreOthers) {
  Change sent = *change(makeFile("b.txt", "x"));
  sent.request.made(kNoContent, {root(), "b.txt"});
  engine->replica().write(Durability::eventual,
                          [&](ReplicaWriter& writer) { journal::put(writer, sent); });
  extension->file("i:1", "b.txt", "x");
  sort();
  EXPECT_TRUE(sorted.incomplete);
  EXPECT_FALSE(sorted.outdated);
  extension->file("i:2", "b.txt", "from there");
  sort();
  EXPECT_TRUE(sorted.fresh.empty());
  EXPECT_TRUE(sorted.outdated);
}

TEST_F(ListingSortTest, WhatWasMovedAwayHereIsNotNew) {
  const NodeId target = makeFolder("target");
  downloaded("i:1", "moved", "1");
  ASSERT_EQ(engine->edits().rename(kRootNode, "moved", target, "moved", 0), 0);
  sort();
  EXPECT_TRUE(sorted.fresh.empty());
  EXPECT_TRUE(sorted.incomplete);
}

TEST_F(ListingSortTest, WhatWasMovedAwayHereStaysThereAndFollowsTheHostsContents) {
  const NodeId target = makeFolder("target");
  const NodeId id = downloaded("i:1", "moved", "1");
  ASSERT_EQ(engine->edits().rename(kRootNode, "moved", target, "here", 0), 0);
  extension->edit("i:1", "another version");
  sort();
  ASSERT_EQ(sorted.kept.size(), 1U);
  EXPECT_EQ(sorted.kept.front().before.id, id);
  EXPECT_TRUE(sorted.kept.front().elsewhere);
  EXPECT_EQ(sorted.kept.front().item->filename, "here");
  EXPECT_EQ(sorted.kept.front().item->contentVersion, "2");
}

}  // namespace
}  // namespace tulo::test
