#include "service/contents/RecentUse.h"

#include "tests/service/support/ContentsFixture.h"

namespace tulo::test {
namespace {

class RecentUseTest : public ContentsFixture {
 protected:
  auto lastUsed(NodeId id) { return row(id)->lastUsed; }
};

TEST_F(RecentUseTest, AnOpenIsWrittenDownLater) {
  const NodeId id = oneFile("");
  const auto before = lastUsed(id);
  EXPECT_EQ(openFile(id).error, 0);
  EXPECT_EQ(lastUsed(id), before);
  EXPECT_TRUE(engine->contents().saveUseStep());
  EXPECT_GT(lastUsed(id), before);
  EXPECT_FALSE(engine->contents().saveUseStep());
}

TEST_F(RecentUseTest, WhatCannotBeOpenedWasNotUsed) {
  EXPECT_EQ(openFile(kRootNode).error, EISDIR);
  EXPECT_FALSE(engine->contents().saveUseStep());
}

TEST_F(RecentUseTest, AnOrderlyEndWritesItDown) {
  const NodeId id = oneFile("");
  const auto before = lastUsed(id);
  EXPECT_EQ(openFile(id).error, 0);
  reopen();
  EXPECT_GT(lastUsed(id), before);
}

}  // namespace
}  // namespace tulo::test
