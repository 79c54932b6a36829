#include "service/upload/Outcome.h"

#include "tests/service/support/UploadFixture.h"

namespace tulo::test {
namespace {

using platform::cocoaError;
using platform::fileProviderError;
using platform::NSFileProviderErrorCode;

class OutcomeTest : public UploadFixture {};

TEST_F(OutcomeTest, WhatMovedOnAtTheHostIsNotDeletedThere) {
  downloaded("i:1", "a.txt", "hello");
  EXPECT_EQ(engine->edits().removeFile(kRootNode, "a.txt"), 0);
  extension->edit("i:1", "edited there");
  push();
  EXPECT_TRUE(sent().empty());
  EXPECT_TRUE(extension->find("i:1"));
  EXPECT_EQ(engine->uploader().statistics().conflicts, 1U);
  list();
  EXPECT_NE(named("a.txt"), kNoNode);
}

TEST_F(OutcomeTest, EditedHereAndDeletedThereIsMadeAgain) {
  const NodeId id = downloaded("i:1", "a.txt", "base");
  write(id, "mine");
  extension->remove("i:1");
  push();
  pushAll();
  EXPECT_EQ(hostContents("a.txt"), "mine");
  EXPECT_EQ(row(id)->identifier, "new:1");
}

TEST_F(OutcomeTest, RenamedHereAndDeletedThereIsGone) {
  const NodeId id = downloaded("i:1", "a.txt", "base");
  EXPECT_EQ(rename("a.txt", "b.txt"), 0);
  extension->remove("i:1");
  push();
  pushAll();
  EXPECT_TRUE(sent().empty());
  EXPECT_EQ(named("b.txt"), kNoNode);
  EXPECT_FALSE(change(id));
}

// As if it had come there while this one was made, and the host answered with it.
TEST_F(OutcomeTest, WhatAMadeFolderHasAtTheHostIsShown) {
  const NodeId folder = makeFolder("d");
  list(folder);
  extension->scriptMutation(
      {.after = [this] { extension->file("i:1", "there.txt", "x", "new:1"); }});
  push();
  EXPECT_EQ(row(folder)->identifier, "new:1");
  EXPECT_TRUE(eventually([&] { return named("there.txt", folder) != kNoNode; }));
}

TEST_F(OutcomeTest, QuotaIsTriedAgainForEverAndShown) {
  const NodeId id = makeFile("a.txt", "hello");
  extension->scriptMutations(ScriptedExtension::MutationScript{
      .error = fileProviderError(NSFileProviderErrorCode::insufficientQuota)});
  push();
  for (int i = 0; i < 12; ++i) {
    clock += milliseconds(10 * 60 * 1000);
    drain();
  }
  EXPECT_EQ(sent().size(), 13U);
  EXPECT_FALSE(change(id)->standing.isRefused());
  EXPECT_FALSE(row(id)->error.empty());
  EXPECT_EQ(counts().pending, 1);
  extension->scriptMutations(std::nullopt);
  pushAll();
  EXPECT_EQ(hostContents("a.txt"), "hello");
  EXPECT_TRUE(row(id)->error.empty());
}

TEST_F(OutcomeTest, WhatTheHostRefusesWaitsForTheUser) {
  const NodeId id = makeFile("a?.txt", "hello");
  failOnce(cocoaError(platform::NSFileWriteInvalidFileNameError));
  push();
  EXPECT_TRUE(change(id)->standing.isRefused());
  EXPECT_FALSE(row(id)->error.empty());
  EXPECT_EQ(counts().attention, 1);
  clock += milliseconds(24 * 3600 * 1000);
  EXPECT_EQ(drain(), 0U);
  EXPECT_EQ(contentsOf(id), "hello");
  engine->uploader().retry(true);
  drain();
  EXPECT_EQ(hostContents("a?.txt"), "hello");
  EXPECT_EQ(counts().attention, 0);
}

TEST_F(OutcomeTest, AnotherNameFreesWhatWasRefused) {
  const NodeId id = makeFile("a?.txt", "hello");
  failOnce(cocoaError(platform::NSFileWriteInvalidFileNameError));
  push();
  EXPECT_EQ(rename("a?.txt", "a.txt"), 0);
  EXPECT_FALSE(change(id)->standing.isRefused());
  push();
  EXPECT_EQ(hostContents("a.txt"), "hello");
}

}  // namespace
}  // namespace tulo::test
