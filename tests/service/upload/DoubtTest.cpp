#include "service/upload/Doubt.h"

#include "tests/service/support/UploadFixture.h"

namespace tulo::test {
namespace {

using platform::fileProviderError;
using platform::NSFileProviderErrorCode;

class DoubtTest : public UploadFixture {};

TEST_F(DoubtTest, AFileWhoseReplyWasLostIsNotMadeTwice) {
  const NodeId id = makeFile("a.txt", "hello");
  failOnce(fileProviderError(NSFileProviderErrorCode::cannotSynchronize), true);
  push();
  EXPECT_TRUE(change(id)->request.isOpen());
  pushAll();
  EXPECT_EQ(sent().size(), 1U);
  EXPECT_EQ(extension->named("a.txt").size(), 1U);
  EXPECT_EQ(row(id)->identifier, "new:1");
}

TEST_F(DoubtTest, AFolderWhoseReplyWasLostIsNotMadeTwice) {
  const NodeId folder = makeFolder("Docs");
  makeFile("a.txt", "hello", folder);
  failOnce(fileProviderError(NSFileProviderErrorCode::serverUnreachable), true);
  push();
  pushAll();
  EXPECT_EQ(extension->named("Docs").size(), 1U);
  EXPECT_EQ(hostContents("a.txt"), "hello");
}

TEST_F(DoubtTest, AnEditWhoseReplyWasLostIsNoConflict) {
  const NodeId id = downloaded("i:1", "a.txt", "base");
  write(id, "mine");
  failOnce(fileProviderError(NSFileProviderErrorCode::cannotSynchronize), true);
  push();
  pushAll();
  EXPECT_EQ(extension->find("i:1")->contents, "mine");
  EXPECT_EQ(extension->find("i:1")->version, 2);
  EXPECT_EQ(names().size(), 1U);
  EXPECT_EQ(engine->uploader().statistics().conflicts, 0U);
}

TEST_F(DoubtTest, AFileOfTheSameNameWithOtherContentsIsNotTakenForTheLostOne) {
  makeFile("a.txt", "mine!");
  failOnce(fileProviderError(NSFileProviderErrorCode::cannotSynchronize));
  push();
  extension->file("i:7", "a.txt", "other");
  pushAll();
  EXPECT_EQ(extension->find("i:7")->contents, "other");
  EXPECT_EQ(extension->named("a.txt").size(), 2U);
}

TEST_F(DoubtTest, DeletedWhileTheReplyIsLostIsDeletedThere) {
  makeFile("a.txt", "hello");
  failOnce(fileProviderError(NSFileProviderErrorCode::cannotSynchronize), true);
  push();
  EXPECT_EQ(engine->edits().removeFile(kRootNode, "a.txt"), 0);
  push();
  pushAll();
  EXPECT_TRUE(extension->named("a.txt").empty());
}

TEST_F(DoubtTest, ARequestOfAnEarlierRunIsNotMadeTwice) {
  const NodeId id = makeFile("a.txt", "hello");
  failOnce(fileProviderError(NSFileProviderErrorCode::cannotSynchronize), true);
  push();
  reopen();
  pushAll();
  EXPECT_EQ(extension->named("a.txt").size(), 1U);
  EXPECT_EQ(row(id)->identifier, "new:1");
}

}  // namespace
}  // namespace tulo::test
