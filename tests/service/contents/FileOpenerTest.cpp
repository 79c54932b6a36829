#include "service/contents/FileOpener.h"

#include <cerrno>

#include "tests/service/support/ContentsFixture.h"

namespace tulo::test {
namespace {

using FileOpenerTest = ContentsFixture;

TEST_F(FileOpenerTest, AnEmptyFileIsNeverFetched) {
  const NodeId id = oneFile("");
  EXPECT_EQ(readThrough(id), "");
  EXPECT_EQ(extension->fetchCount(), 0U);
}

TEST_F(FileOpenerTest, SaysWhatIsMissing) {
  const NodeId id = oneFile();
  EXPECT_EQ(engine->contents().openNow(id).step, OpenStep::fetch);
  EXPECT_EQ(readThrough(id), "hello");
  EXPECT_EQ(engine->contents().openNow(id).step, OpenStep::open);
  commit();
  EXPECT_EQ(engine->contents().openNow(id).step, OpenStep::verify);
}

TEST_F(FileOpenerTest, RefusesAFolderAndWhatIsGone) {
  const OpenAttempt folder = engine->contents().openNow(kRootNode);
  ASSERT_TRUE(folder.isAnswered());
  EXPECT_EQ(folder.answer.error, EISDIR);
  const OpenAttempt gone = engine->contents().openNow(NodeId(4711));
  ASSERT_TRUE(gone.isAnswered());
  EXPECT_EQ(gone.answer.error, ESTALE);
}

TEST_F(FileOpenerTest, WhatIsOpenIsKnownAsSuchUntilItIsClosed) {
  const NodeId id = oneFile("");
  {
    const OpenAttempt attempt = engine->contents().openNow(id);
    ASSERT_NE(attempt.answer.file, nullptr);
    EXPECT_TRUE(engine->openFiles().isOpen(id));
  }
  EXPECT_FALSE(engine->openFiles().isOpen(id));
}

TEST_F(FileOpenerTest, OpensWithoutContentsWhereTheyAreOfNoInterest) {
  const NodeId id = oneFile();
  EXPECT_NE(engine->contents().openAsIs(id), nullptr);
  EXPECT_EQ(engine->contents().openAsIs(kRootNode), nullptr);
  EXPECT_EQ(engine->contents().openAsIs(NodeId(4711)), nullptr);
  EXPECT_EQ(extension->fetchCount(), 0U);
}

}  // namespace
}  // namespace tulo::test
