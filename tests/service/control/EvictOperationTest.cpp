#include <gtest/gtest.h>

#include "tests/service/control/ControlFixture.h"

namespace tulo::test {
namespace {

using control::FilesReply;

using EvictOperationTest = ControlFixture;

TEST_F(EvictOperationTest, WhatWasDownloadedGoes) {
  const NodeId id = downloaded("i:1", "a.txt", "base");
  const FilesReply reply = control::evict(parts(), files({id}));
  EXPECT_TRUE(reply.outcome.ok);
  EXPECT_EQ(reply.files, 1U);
  EXPECT_EQ(row(id)->content, kNoContent);
}

TEST_F(EvictOperationTest, WhatWasNotSentStays) {
  const NodeId id = makeFile("a.txt", "mine");
  const FilesReply reply = control::evict(parts(), files({id}));
  EXPECT_FALSE(reply.outcome.ok);
  EXPECT_EQ(*reply.outcome.failures,
            (control::Failures{{std::string("a.txt"), "open, pinned, or not sent yet"}}));
  EXPECT_EQ(contentsOf(id), "mine");
}

TEST_F(EvictOperationTest, OfAFolderItIsAllThatIsKnownInIt) {
  extension->folder("f:1", "Docs");
  list();
  extension->file("i:1", "a.txt", "base", "f:1");
  list(idOf("f:1"));
  readThrough(idOf("i:1"));
  EXPECT_EQ(control::evict(parts(), files({kRootNode})).files, 1U);
  EXPECT_EQ(row(idOf("i:1"))->content, kNoContent);
}

TEST_F(EvictOperationTest, ANumberThatNobodyHasMeansNoFiles) {
  EXPECT_EQ(control::evict(parts(), files({NodeId(98765)})).files, 0U);
}

}  // namespace
}  // namespace tulo::test
