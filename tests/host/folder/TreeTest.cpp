#include "host/folder/Tree.h"

#include <gmock/gmock.h>

#include <set>

#include "tests/host/folder/FolderFixture.h"

namespace tulo::host {
namespace {

namespace fs = std::filesystem;

class TreeTest : public FolderTest {};

TEST_F(TreeTest, TheFirstLookFindsEverything) {
  makeFolder("a/b");
  makeFile("a/b/file");
  tree_.scanAll();
  EXPECT_TRUE(node("a/b/file"));
  EXPECT_EQ(index_.database().pending(), 0U);
}

TEST_F(TreeTest, AnEntryKeepsItsIdentifierInItsPlace) {
  makeFile("a", "old");
  tree_.scanAll();
  const std::string before = ulid("a");
  makeFile("new", "newer");
  fs::rename(inRoot("new"), inRoot("a"));
  tree_.reconcileEntry("", "a");
  tree_.settle();
  EXPECT_EQ(ulid("a"), before);
  EXPECT_EQ(index_.rows().file(before)->version, 2);
}

TEST_F(TreeTest, AnUnchangedEntryGetsNoNewVersion) {
  makeFile("a");
  tree_.scanAll();
  tree_.reconcileEntry("", "a");
  EXPECT_EQ(index_.database().pending(), 0U);
  EXPECT_EQ(index_.rows().file(ulid("a"))->version, 1);
}

TEST_F(TreeTest, WhatIsMissingWaitsForTheEndSinceItMayHaveMoved) {
  makeFile("a");
  makeFolder("d");
  tree_.scanAll();
  const std::string file = ulid("a");
  fs::rename(inRoot("a"), inRoot("d/a"));
  tree_.reconcileEntry("", "a");
  EXPECT_TRUE(index_.nodes().node(file));
  tree_.reconcileEntry(ulid("d"), "a");
  tree_.finish();
  EXPECT_EQ(ulid("d/a"), file);
}

TEST_F(TreeTest, WhatIsMissingAtTheEndIsGone) {
  makeFolder("d");
  makeFile("d/a");
  tree_.scanAll();
  const std::string file = ulid("d/a");
  fs::remove_all(inRoot("d"));
  tree_.reconcileEntry("", "d");
  tree_.finish();
  EXPECT_FALSE(index_.nodes().node(file));
  EXPECT_EQ(index_.rows().counts().items, 0);
}

TEST_F(TreeTest, AFileInThePlaceOfAFolderIsAnotherItem) {
  makeFolder("a");
  tree_.scanAll();
  const std::string folder = ulid("a");
  fs::remove(inRoot("a"));
  makeFile("a");
  tree_.reconcileEntry("", "a");
  tree_.settle();
  EXPECT_NE(ulid("a"), folder);
  EXPECT_FALSE(index_.nodes().node(folder));
}

TEST_F(TreeTest, FoldersAreToldOfAsTheyComeAndGo) {
  std::set<std::string> served;
  tree_.observeFolders({[&](const std::string& folder, int) { served.insert(folder); },
                        [&](const std::string& folder) { served.erase(folder); },
                        {}});
  makeFolder("a/b");
  tree_.scanAll();
  EXPECT_THAT(served, testing::UnorderedElementsAre("", ulid("a"), ulid("a/b")));
  fs::remove_all(inRoot("a"));
  tree_.reconcileEntry("", "a");
  tree_.settle();
  EXPECT_THAT(served, testing::ElementsAre(""));
}

TEST_F(TreeTest, ARefreshFindsWhatHasMovedAnywhere) {
  makeFile("a");
  makeFolder("d/e");
  tree_.scanAll();
  const Node file = *node("a");
  fs::rename(inRoot("a"), inRoot("d/e/b"));
  const auto found = tree_.refresh(file);
  ASSERT_TRUE(found);
  EXPECT_EQ(found->ulid, file.ulid);
  EXPECT_EQ(found->diskName, "b");
}

TEST_F(TreeTest, ARefreshOfWhatIsGoneRemovesItsRow) {
  makeFile("a");
  tree_.scanAll();
  const Node file = *node("a");
  fs::remove(inRoot("a"));
  EXPECT_FALSE(tree_.refresh(file));
  EXPECT_EQ(index_.rows().counts().items, 0);
}

TEST_F(TreeTest, WhatAKilledHostHadTakenFromItsPlaceIsGoneAfterTheNextLookAtEverything) {
  makeFolder("d");
  makeFile("d/a");
  tree_.scanAll();
  const std::string folder = ulid("d");
  const std::string file = ulid("d/a");
  index_.nodes().displace(folder);
  index_.database().commit();
  fs::remove_all(inRoot("d"));
  tree_.scanAll();
  EXPECT_FALSE(index_.nodes().node(folder));
  EXPECT_FALSE(index_.nodes().node(file));
  EXPECT_EQ(index_.rows().counts().folders, 0);
}

TEST_F(TreeTest, AFolderInItsQueueThatIsGoneIsSkipped) {
  tree_.scanAll();
  tree_.queueFolder("none");
  EXPECT_TRUE(tree_.hasQueued());
  EXPECT_NO_THROW(tree_.settle());
  EXPECT_FALSE(tree_.hasQueued());
}

}  // namespace
}  // namespace tulo::host
