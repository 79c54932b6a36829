#include "service/kernel/Folders.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <utility>
#include <vector>

namespace tulo::test {
namespace {

constexpr NodeId kOne{20};
constexpr NodeId kTwo{21};
constexpr NodeId kThree{22};

TEST(FoldersTest, AFolderIsVerifiedForTheHighestGenerationThatItWasSetTo) {
  Folders folders;
  EXPECT_FALSE(folders.verified(kOne));
  folders.setVerified(kOne, 7);
  folders.setVerified(kOne, 5);
  EXPECT_EQ(folders.verified(kOne), 7U);
  folders.dropVerified(kOne);
  EXPECT_FALSE(folders.verified(kOne));
}

TEST(FoldersTest, OnlyWhatTheKernelKnowsAndSomebodySawIsOutOfDateMostRecentlyUsedFirst) {
  Folders folders;
  for (const NodeId folder : {kOne, kTwo, kThree})
    folders.remembered(folder);
  folders.setVerified(kOne, 1);
  folders.setVerified(kTwo, 1);
  folders.setVerified(NodeId(30), 1);  // which the kernel does not know
  folders.used(kOne);
  EXPECT_EQ(folders.olderThan(2), (std::vector<NodeId>{kOne, kTwo}));
  folders.setVerified(kOne, 2);
  EXPECT_EQ(folders.olderThan(2), std::vector<NodeId>{kTwo});
}

TEST(FoldersTest, TheKernelAlwaysKnowsTheRoot) {
  Folders folders;
  folders.setVerified(kRootNode, 1);
  EXPECT_EQ(folders.olderThan(2), std::vector<NodeId>{kRootNode});
}

TEST(FoldersTest, AWatchedFolderIsOutOfDateAlthoughNobodyHasSeenIt) {
  Folders folders;
  folders.setWatched({kOne});
  EXPECT_EQ(folders.olderThan(1), std::vector<NodeId>{kOne});
  folders.setWatched({kTwo});
  EXPECT_EQ(folders.olderThan(1), std::vector<NodeId>{kTwo});
}

TEST(FoldersTest, AFolderThatTheKernelForgotIsNotOutOfDate) {
  Folders folders;
  folders.remembered(kOne, 3);
  folders.setVerified(kOne, 1);
  folders.forgotten(kOne, 2);
  EXPECT_EQ(folders.references(), 1U);
  EXPECT_EQ(folders.olderThan(2), std::vector<NodeId>{kOne});
  folders.forgotten(kOne, 9);
  EXPECT_EQ(folders.references(), 0U);
  EXPECT_TRUE(folders.olderThan(2).empty());
}

TEST(FoldersTest, WhatIsGoneKeepsItsReferencesUntilTheKernelGivesThemBack) {
  Folders folders;
  folders.remembered(kOne);
  folders.setVerified(kOne, 1);
  folders.setVerified(kTwo, 1);
  folders.remove(kOne);
  folders.remove(kTwo);
  EXPECT_EQ(folders.references(), 1U);
  EXPECT_EQ(folders.size(), 1U);
  EXPECT_FALSE(folders.verified(kOne));
}

TEST(FoldersTest, TellsEveryFolderThatIsVerified) {
  Folders folders;
  folders.setVerified(kOne, 4);
  folders.remembered(kTwo);
  EXPECT_EQ(folders.allVerified(), (std::vector<std::pair<NodeId, std::uint64_t>>{{kOne, 4}}));
}

TEST(FoldersTest, AWatchedFolderThatLeavesAndComesBackIsWatchedStill) {
  Folders folders;
  folders.setWatched({kOne, kTwo});
  folders.remove(kOne);
  folders.remembered(kTwo);
  folders.remove(kTwo);
  folders.renumbered(kTwo, kThree);
  auto watched = folders.olderThan(1);
  std::sort(watched.begin(), watched.end());
  EXPECT_EQ(watched, (std::vector<NodeId>{kOne, kThree}));
}

TEST(FoldersTest, TheKernelKnowsWhatItHoldsReferencesTo) {
  Folders folders;
  folders.used(kOne);
  EXPECT_FALSE(folders.isKnown(kOne));
  folders.remembered(kOne, 2);
  EXPECT_TRUE(folders.isKnown(kOne));
  folders.forgotten(kOne, 2);
  EXPECT_FALSE(folders.isKnown(kOne));
}

}  // namespace
}  // namespace tulo::test
