#include "service/kernel/RescueNews.h"

#include <gtest/gtest.h>

namespace tulo::test {
namespace {

TEST(RescueNewsTest, WithoutARescueThereIsNone) {
  EXPECT_TRUE(newsOf({}).empty());
}

TEST(RescueNewsTest, BothPlacesAreTold) {
  const Invalidations news = newsOf({{NodeId(20), "a~", NodeId(30), "a (2)~"}});
  EXPECT_EQ(news, (Invalidations{entryChanged(NodeId(20), "a~"), entryChanged(NodeId(30), "a (2)~"),
                                 dataChanged(NodeId(30)), entryChanged(kRootNode, kRecoveryFolder),
                                 dataChanged(kRootNode)}));
}

}  // namespace
}  // namespace tulo::test
