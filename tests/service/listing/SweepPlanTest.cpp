#include "service/listing/SweepPlan.h"

#include <gtest/gtest.h>

#include <set>
#include <vector>

namespace tulo::test {
namespace {

constexpr bool kWhole = false;
constexpr bool kShort = true;

class SweepPlanTest : public ::testing::Test {
 protected:
  // Folders that the kernel knows, each used later than the one before it.
  void addFolders(std::uint64_t count) {
    for (std::uint64_t i = 0; i < count; ++i) {
      const NodeId folder(100 + i);
      folders.remembered(folder);
      folders.setVerified(folder, 1);
    }
  }

  std::vector<NodeId> pass(std::uint64_t generation) {
    std::vector<NodeId> result;
    for (;;) {
      const NodeId folder = plan.next(generation, kWhole).folder;
      if (folder == kNoNode) return result;
      result.push_back(folder);
    }
  }

  Folders folders;
  SweepPlan plan{folders};
};

TEST_F(SweepPlanTest, APassGoesOverWhatIsBehindMostRecentlyUsedFirst) {
  addFolders(3);
  folders.setVerified(NodeId(101), 2);
  EXPECT_EQ(pass(2), (std::vector<NodeId>{NodeId(102), NodeId(100)}));
}

TEST_F(SweepPlanTest, BehindTheMostRecentlyUsedComesFirstWhatHasWaitedLongest) {
  addFolders(40);
  for (std::uint64_t i = 0; i < 40; ++i)
    folders.setVerified(NodeId(100 + i), 2);
  folders.remembered(NodeId(50));
  folders.setVerified(NodeId(50), 1);
  for (std::uint64_t i = 0; i < 40; ++i)
    folders.used(NodeId(100 + i));
  const std::vector<NodeId> all = pass(3);
  ASSERT_EQ(all.size(), 41U);
  EXPECT_EQ(all.front(), NodeId(139));
  EXPECT_EQ(all[16], NodeId(50));
}

TEST_F(SweepPlanTest, AnotherGenerationBeginsThePassAnew) {
  addFolders(3);
  EXPECT_TRUE(plan.isBehind(2));
  EXPECT_TRUE(plan.next(2, kWhole).beginsPass);
  EXPECT_FALSE(plan.isBehind(2));
  EXPECT_FALSE(plan.next(2, kWhole).beginsPass);
  const SweepPlan::Step step = plan.next(3, kWhole);
  EXPECT_TRUE(step.beginsPass);
  EXPECT_EQ(step.folder, NodeId(102));
}

TEST_F(SweepPlanTest, PassesThatAreCutShortBeginWithTheLastUsedAndTheLongestWaitingInTurns) {
  addFolders(3);
  folders.setVerified(NodeId(101), 2);
  folders.setVerified(NodeId(102), 2);
  std::set<NodeId> first;
  for (std::uint64_t generation = 3; generation < 5; ++generation)
    first.insert(plan.next(generation, kShort).folder);
  EXPECT_EQ(first, (std::set<NodeId>{NodeId(100), NodeId(102)}));
}

TEST_F(SweepPlanTest, WhatFailedComesAfterThePassOnceEach) {
  addFolders(1);
  plan.tryAgain(NodeId(77));
  plan.tryAgain(NodeId(77));
  EXPECT_FALSE(plan.next(2, kWhole).isRetry);
  const SweepPlan::Step step = plan.next(2, kWhole);
  EXPECT_TRUE(step.isRetry);
  EXPECT_EQ(step.folder, NodeId(77));
  EXPECT_EQ(plan.next(2, kWhole).folder, kNoNode);
}

TEST_F(SweepPlanTest, TheFoldersThatALongPassHasNotReachedAreToBeAskedForAnew) {
  addFolders(70);
  for (int i = 0; i < 63; ++i)
    EXPECT_TRUE(plan.next(2, kWhole).overtaken.empty()) << i;
  std::vector<NodeId> overtaken = plan.next(2, kWhole).overtaken;
  EXPECT_EQ(overtaken.size(), 6U);
  EXPECT_EQ(overtaken, pass(2));
}

}  // namespace
}  // namespace tulo::test
