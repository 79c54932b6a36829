#include "service/replica/Ancestors.h"

#include <functional>
#include <vector>

#include "tests/service/support/ReplicaFixture.h"

namespace tulo::test {
namespace {

class AncestorsTest : public ReplicaFixture {
 protected:
  NodeId first(NodeId from, const std::function<bool(const Node&)>& holds) {
    const auto found =
        read([&](ReplicaReader& reader) { return firstUpwards(reader, from, holds); });
    return found ? found->id : kNoNode;
  }

  std::vector<NodeId> visited(NodeId from) {
    std::vector<NodeId> result;
    first(from, [&](const Node& node) {
      result.push_back(node.id);
      return false;
    });
    return result;
  }

  bool inside(NodeId node, NodeId ancestor) {
    return read([&](ReplicaReader& reader) { return isInside(reader, node, ancestor); });
  }

  void move(NodeId id, NodeId parent) {
    write([&](ReplicaWriter& writer) {
      Node node = *writer.node(id);
      node.parent = parent;
      writer.update(node);
    });
  }

  const NodeId outer = addFolder("outer");
  const NodeId inner = addFolder("inner", outer);
  const NodeId file = add("file", "i:file", inner);
};

TEST_F(AncestorsTest, GoesFromTheNodeItselfUpToTheRoot) {
  EXPECT_EQ(visited(file), (std::vector<NodeId>{file, inner, outer, kRootNode}));
  EXPECT_EQ(visited(kRootNode), std::vector<NodeId>{kRootNode});
}

TEST_F(AncestorsTest, EndsWithTheFirstForWhichThePredicateHolds) {
  const NodeId same = addFolder("outer", inner);
  const NodeId below = add("below", "i:below", same);
  EXPECT_EQ(first(below, [](const Node& node) { return node.name == "outer"; }), same);
  EXPECT_EQ(first(below, [](const Node& node) { return node.name == "below"; }), below);
  EXPECT_EQ(first(below, [](const Node& node) { return node.name == "none"; }), kNoNode);
}

TEST_F(AncestorsTest, WhatIsInNoFolderHasNoneAbove) {
  move(file, kNoNode);
  EXPECT_EQ(visited(file), std::vector<NodeId>{file});
  EXPECT_TRUE(visited(NodeId(999'999)).empty());
}

TEST_F(AncestorsTest, ATreeThatGoesRoundInACircleEndsToo) {
  move(outer, inner);
  EXPECT_EQ(visited(inner).size(), kDeepest);
  EXPECT_FALSE(inside(file, kRootNode));
}

TEST_F(AncestorsTest, ANodeIsInsideItselfAndWhatItIsBelow) {
  EXPECT_TRUE(inside(file, file));
  EXPECT_TRUE(inside(file, outer));
  EXPECT_TRUE(inside(file, kRootNode));
  EXPECT_FALSE(inside(outer, inner));
  EXPECT_FALSE(inside(addFolder("beside"), outer));
}

}  // namespace
}  // namespace tulo::test
