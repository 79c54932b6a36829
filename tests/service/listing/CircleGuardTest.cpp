#include "service/listing/CircleGuard.h"

#include "service/replica/Journal.h"
#include "tests/service/support/ReplicaFixture.h"

namespace tulo::test {
namespace {

class CircleGuardTest : public ReplicaFixture {
 protected:
  // Whether the outer folder may move into the one that was listed.
  bool mayMove(NodeId moved, NodeId listed) {
    bool result = false;
    write([&](ReplicaWriter& writer) {
      Reconciliation pass{writer, openFiles, folders, *writer.node(listed), false, true};
      result = makeWay(pass, *writer.node(moved));
      told = pass.invalidations;
      outdated = pass.outdated;
    });
    return result;
  }

  OpenFiles openFiles;
  Folders folders;
  Invalidations told;
  bool outdated = false;
  const NodeId outer = addFolder("outer");
  const NodeId branch = addFolder("branch", outer);
  const NodeId leaf = addFolder("leaf", branch);
};

TEST_F(CircleGuardTest, TheBranchLeavesTheTree) {
  EXPECT_TRUE(mayMove(outer, leaf));
  EXPECT_EQ(row(branch)->parent, kNoNode);
  EXPECT_EQ(row(leaf)->parent, branch);
  EXPECT_EQ(told, (Invalidations{entryChanged(outer, "branch"), dataChanged(outer)}));
}

TEST_F(CircleGuardTest, WhatIsNotBelowMayMove) {
  EXPECT_TRUE(mayMove(leaf, outer));
  EXPECT_EQ(row(branch)->parent, outer);
  EXPECT_TRUE(told.empty());
}

TEST_F(CircleGuardTest, ABranchThatWasPutThereOnThisSideStays) {
  write([&](ReplicaWriter& writer) {
    journal::put(writer, journal::begin(writer, *writer.node(branch), WallTime{}));
  });
  EXPECT_FALSE(mayMove(outer, leaf));
  EXPECT_EQ(row(branch)->parent, outer);
  EXPECT_TRUE(outdated);
}

}  // namespace
}  // namespace tulo::test
