#include "service/upload/Failure.h"

#include <filesystem>

#include "tests/service/support/WritingFixture.h"

namespace tulo::test {
namespace {

using platform::fileProviderError;
using platform::NSFileProviderErrorCode;

class FailureTest : public WritingFixture {};

TEST_F(FailureTest, AFolderThatIsGoneThereIsMadeAgainForWhatIsNewInIt) {
  extension->folder("f:1", "Docs");
  list();
  const NodeId folder = idOf("f:1");
  EXPECT_EQ(refresh(folder), 0);
  makeFile("new.txt", "x", folder);
  extension->remove("f:1");
  push();
  pushAll();
  ASSERT_EQ(extension->named("Docs").size(), 1U);
  ASSERT_EQ(extension->named("new.txt").size(), 1U);
  EXPECT_EQ(extension->named("new.txt")[0].parent, extension->named("Docs")[0].identifier);
}

TEST_F(FailureTest, WhatFailsForNoKnownReasonIsGivenUpAfterSomeAttempts) {
  const NodeId id = makeFile("a.txt", "hello");
  extension->scriptMutations(ScriptedExtension::MutationScript{
      .error = fileProviderError(NSFileProviderErrorCode::cannotSynchronize)});
  push();
  for (int i = 0; i < 40 && !change(id)->standing.isRefused(); ++i) {
    clock += milliseconds(10 * 60 * 1000);
    drain();
  }
  EXPECT_TRUE(change(id)->standing.isRefused());
  EXPECT_EQ(contentsOf(id), "hello");
  EXPECT_LE(sent().size(), static_cast<std::size_t>(kUncertainAttempts));
}

TEST_F(FailureTest, AnUnreachableHostIsTriedForEver) {
  const NodeId id = makeFile("a.txt", "hello");
  extension->scriptMutations(ScriptedExtension::MutationScript{
      .error = fileProviderError(NSFileProviderErrorCode::serverUnreachable)});
  push();
  for (int i = 0; i < 20; ++i) {
    clock += milliseconds(10 * 60 * 1000);
    drain();
  }
  EXPECT_FALSE(change(id)->standing.isRefused());
  EXPECT_TRUE(row(id)->error.empty());
  extension->scriptMutations(std::nullopt);
  pushAll();
  EXPECT_EQ(extension->named("a.txt").size(), 1U);
}

TEST_F(FailureTest, WhatIsShortOnThisMachineIsNotTakenForTheHostsRefusal) {
  const NodeId id = makeFile("a.txt", "hello");
  // No copy can be made there.
  const std::string staging = directory.file("fp-upload");
  std::filesystem::create_directory_symlink("/proc", staging);
  extension->scriptMutations(ScriptedExtension::MutationScript{
      .error = fileProviderError(NSFileProviderErrorCode::cannotSynchronize)});
  push();
  for (int i = 0; i < 20; ++i) {
    clock += std::chrono::minutes(10);
    drain();
    EXPECT_FALSE(change(id)->standing.isRefused());
  }
  EXPECT_FALSE(row(id)->error.empty());
  std::filesystem::remove(staging);
  // The host's own failures are counted from the first of them on.
  clock += std::chrono::minutes(10);
  drain();
  EXPECT_FALSE(change(id)->standing.isRefused());
  extension->scriptMutations(std::nullopt);
  pushAll();
  EXPECT_EQ(hostContents("a.txt"), "hello");
  EXPECT_TRUE(row(id)->error.empty());
}

TEST_F(FailureTest, AnUnreachableHostDoesNotCountAsAFailureWithoutAReason) {
  const NodeId id = makeFile("a.txt", "hello");
  extension->scriptMutations(ScriptedExtension::MutationScript{
      .error = fileProviderError(NSFileProviderErrorCode::serverUnreachable)});
  push();
  for (int i = 0; i < 10; ++i) {
    clock += std::chrono::minutes(10);
    drain();
  }
  extension->scriptMutations(ScriptedExtension::MutationScript{
      .error = fileProviderError(NSFileProviderErrorCode::cannotSynchronize)});
  clock += std::chrono::minutes(10);
  drain();
  EXPECT_FALSE(change(id)->standing.isRefused());
}

}  // namespace
}  // namespace tulo::test
