#include "service/edits/Ancestors.h"

#include "tests/service/support/EditsFixture.h"

namespace tulo::test {
namespace {

class AncestorsTest : public EditsFixture {
 protected:
  NodeId first(NodeId from, const std::function<bool(const Node&)>& holds) {
    const auto found = engine->replica().read(
        [&](ReplicaReader& reader) { return firstUpwards(reader, from, holds); });
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
};

TEST_F(AncestorsTest, GoesFromTheNodeItselfUpToTheRoot) {
  const NodeId outer = makeFolder("outer");
  const NodeId inner = makeFolder("inner", outer);
  const NodeId file = makeFile("file", "x", inner);
  EXPECT_EQ(visited(file), (std::vector<NodeId>{file, inner, outer, kRootNode}));
  EXPECT_EQ(visited(kRootNode), std::vector<NodeId>{kRootNode});
}

TEST_F(AncestorsTest, EndsWithTheFirstForWhichThePredicateHolds) {
  const NodeId outer = makeFolder("same", makeFolder("top"));
  const NodeId inner = makeFolder("same", outer);
  const NodeId file = makeFile("file", "x", inner);
  EXPECT_EQ(first(file, [](const Node& node) { return node.name == "same"; }), inner);
  EXPECT_EQ(first(file, [](const Node& node) { return node.name == "file"; }), file);
  EXPECT_EQ(first(file, [](const Node& node) { return node.name == "none"; }), kNoNode);
}

TEST_F(AncestorsTest, WhatIsInNoFolderHasNoneAbove) {
  const NodeId file = makeFile("file", "x");
  EXPECT_EQ(edits().removeFile(kRootNode, "file"), 0);
  EXPECT_EQ(visited(file), std::vector<NodeId>{file});
  EXPECT_TRUE(visited(NodeId(999'999)).empty());
}

TEST_F(AncestorsTest, ATreeThatGoesRoundInACircleEndsToo) {
  const NodeId outer = makeFolder("outer");
  const NodeId inner = makeFolder("inner", outer);
  engine->replica().write(Durability::eventual, [&](ReplicaWriter& writer) {
    Node node = *writer.node(outer);
    node.parent = inner;
    writer.update(node);
  });
  EXPECT_EQ(visited(inner).size(), kDeepest);
}

}  // namespace
}  // namespace tulo::test
