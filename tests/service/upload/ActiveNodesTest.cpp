#include "service/upload/ActiveNodes.h"

#include <gtest/gtest.h>

namespace tulo::test {
namespace {

TEST(ActiveNodesTest, ANodeIsTakenOnceUntilItIsGivenBack) {
  ActiveNodes nodes;
  EXPECT_TRUE(nodes.take(NodeId(20)));
  EXPECT_FALSE(nodes.take(NodeId(20)));
  EXPECT_TRUE(nodes.contains(NodeId(20)));
  EXPECT_EQ(nodes.size(), 1U);
  nodes.giveBack(NodeId(20));
  EXPECT_FALSE(nodes.contains(NodeId(20)));
  EXPECT_TRUE(nodes.take(NodeId(20)));
}

TEST(ActiveNodesTest, TellsAllThatAreTaken) {
  ActiveNodes nodes;
  EXPECT_TRUE(nodes.all().empty());
  nodes.take(NodeId(20));
  nodes.take(NodeId(21));
  nodes.giveBack(NodeId(20));
  EXPECT_EQ(nodes.all(), (std::vector<NodeId>{NodeId(21)}));
}

}  // namespace
}  // namespace tulo::test
