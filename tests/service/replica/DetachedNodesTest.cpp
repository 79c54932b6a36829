#include "service/replica/DetachedNodes.h"

#include "tests/service/support/ReplicaFixture.h"
#include "tests/service/support/Times.h"

namespace tulo::test {
namespace {

class DetachedNodesTest : public ReplicaFixture {
 protected:
  NodeId detached(const std::string& name, const std::string& identifier, int when) {
    const NodeId id = add(name, identifier);
    write([&](ReplicaWriter& writer) { writer.detach(id, WallSeconds(seconds(when))); });
    return id;
  }

  std::vector<NodeId> since(int latest) {
    return read([&](ReplicaReader& reader) {
      return detachedNodes::since(reader, WallSeconds(seconds(latest)), kNoNode, 100);
    });
  }
};

TEST_F(DetachedNodesTest, AreToldByTheTimeOfTheirLeaving) {
  add("there", "i:1");
  const NodeId early = detached("early", "i:2", 100);
  const NodeId late = detached("late", "i:3", 200);
  EXPECT_TRUE(since(99).empty());
  EXPECT_EQ(since(100), std::vector<NodeId>{early});
  EXPECT_EQ(since(200), (std::vector<NodeId>{early, late}));
}

TEST_F(DetachedNodesTest, ANodeThatComesBackIsNoneOfThem) {
  const NodeId id = detached("a", "i:1", 100);
  Node node = *row(id);
  node.parent = kRootNode;
  write([&](ReplicaWriter& writer) { writer.update(node); });
  EXPECT_TRUE(since(100).empty());
}

TEST_F(DetachedNodesTest, WhatTheHostDoesNotKnowIsToldApart) {
  detached("known", "i:1", 100);
  const NodeId unknown = detached("unknown", "", 100);
  add("there", "");
  EXPECT_EQ(
      read([](ReplicaReader& reader) { return detachedNodes::unknown(reader, kNoNode, 100); }),
      std::vector<NodeId>{unknown});
}

TEST_F(DetachedNodesTest, WhatLeftInTheFutureLeftNow) {
  const NodeId early = detached("early", "i:1", 100);
  const NodeId ahead = detached("ahead", "i:2", 90000);
  write([](ReplicaWriter& writer) { detachedNodes::capTimes(writer, atSecond(150)); });
  EXPECT_EQ(since(149), std::vector<NodeId>{early});
  EXPECT_EQ(since(150), (std::vector<NodeId>{early, ahead}));
}

}  // namespace
}  // namespace tulo::test
