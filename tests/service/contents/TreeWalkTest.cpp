#include "service/contents/TreeWalk.h"

#include <gmock/gmock.h>

#include "tests/service/support/ContentsFixture.h"

namespace tulo::test {
namespace {

class TreeWalkTest : public ContentsFixture {
 protected:
  TreeWalkTest() {
    extension->file("i:1", "a", "1");
    extension->folder("f:1", "Docs");
    extension->file("i:2", "b", "2", "f:1");
    extension->folder("f:2", "Old", "f:1");
    extension->file("i:3", "c", "3", "f:2");
    refresh();
  }

  TreeWalk walk() { return {engine->replica(), engine->sync()}; }
};

TEST_F(TreeWalkTest, ListsFoldersOnTheWay) {
  const auto files = walk().files(kRootNode, [](std::size_t) { return true; });
  EXPECT_THAT(files, testing::UnorderedElementsAre(idOf("i:1"), idOf("i:2"), idOf("i:3")));
}

TEST_F(TreeWalkTest, WhatIsKnownIsFoundWithoutAskingAnybody) {
  const std::size_t listings = extension->listingCount();
  EXPECT_THAT(walk().knownFiles(kRootNode), testing::ElementsAre(idOf("i:1")));
  EXPECT_EQ(extension->listingCount(), listings);
}

TEST_F(TreeWalkTest, AFileIsUnderItself) {
  EXPECT_THAT(walk().knownFiles(idOf("i:1")), testing::ElementsAre(idOf("i:1")));
  EXPECT_TRUE(walk().knownFiles(NodeId(4711)).empty());
}

TEST_F(TreeWalkTest, EndsWhenNobodyWantsToKnowAnyMore) {
  const auto files = walk().files(kRootNode, [](std::size_t found) { return found == 0; });
  EXPECT_THAT(files, testing::ElementsAre(idOf("i:1")));
}

TEST_F(TreeWalkTest, AFolderThatCannotBeListedIsWalkedAsItIsKnown) {
  refresh(idOf("f:1"));
  extension->setListingError(
      fileProviderError(platform::NSFileProviderErrorCode::serverUnreachable));
  commit();
  const auto files = walk().files(kRootNode, [](std::size_t) { return true; });
  EXPECT_THAT(files, testing::UnorderedElementsAre(idOf("i:1"), idOf("i:2")));
}

}  // namespace
}  // namespace tulo::test
