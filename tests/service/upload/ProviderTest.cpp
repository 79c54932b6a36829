#include "service/upload/Provider.h"

#include <cerrno>
#include <filesystem>
#include <thread>

#include "tests/service/support/ScriptedProbe.h"
#include "tests/service/support/UploadFixture.h"

namespace tulo::test {
namespace {

class ProviderTest : public UploadFixture {
 protected:
  ProviderTest() : provider(extension, engine->store()) {}

  Provider provider;
};

TEST_F(ProviderTest, LooksUpWhatTheHostHas) {
  extension->file("i:1", "a.txt", "hello");
  const Answer answer = provider.lookUp("i:1");
  ASSERT_TRUE(answer.item);
  EXPECT_EQ(answer.item->filename(), "a.txt");
  EXPECT_FALSE(answer.error);
  EXPECT_FALSE(answer.isGone());
}

TEST_F(ProviderTest, TellsWhatIsGoneFromWhatCannotBeSeen) {
  EXPECT_TRUE(provider.lookUp("i:1").isGone());
  extension->setLookUpError(
      platform::fileProviderError(platform::NSFileProviderErrorCode::serverUnreachable));
  const Answer answer = provider.lookUp("i:1");
  EXPECT_TRUE(answer.error);
  EXPECT_FALSE(answer.isGone());
}

TEST_F(ProviderTest, ListsAFolderOrSaysWhyNot) {
  extension->folder("f:1", "Docs");
  extension->file("i:1", "a.txt", "hello", "f:1");
  const Answer answer = provider.list("f:1");
  ASSERT_EQ(answer.listing.items.size(), 1U);
  EXPECT_EQ(answer.listing.items[0].identifier, "i:1");
  extension->setListingError(
      platform::fileProviderError(platform::NSFileProviderErrorCode::cannotSynchronize));
  EXPECT_TRUE(provider.list("f:1").error);
}

TEST_F(ProviderTest, SendsContentsOnlyIfThePlanSaysSo) {
  Plan plan;
  plan.kind = Plan::Kind::modify;
  plan.node = *row(downloaded("i:1", "a.txt", "hello"));
  plan.node.filename = "b.txt";
  plan.parentIdentifier = root();
  plan.fields = platform::NSFileProviderItemFilename;
  EXPECT_TRUE(provider.send(plan).item);
  plan.fields = platform::NSFileProviderItemContents;
  EXPECT_TRUE(provider.send(plan).item);
  ASSERT_EQ(sent().size(), 2U);
  EXPECT_FALSE(sent()[0].contents);
  EXPECT_EQ(sent()[1].contents, "hello");
}

TEST_F(ProviderTest, StoppingEndsTheWaiting) {
  extension->file("i:1", "a.txt", "hello");
  extension->holdFetches();
  Answer answer;
  std::thread waiting([&] { answer = provider.fetch("i:1"); });
  EXPECT_TRUE(eventually([&] { return extension->heldFetches() == 1; }));
  provider.stop();
  waiting.join();
  EXPECT_TRUE(answer.stopped);
  EXPECT_FALSE(answer.url);
}

class LateAnswerTest : public ::testing::Test {
 protected:
  // Asks for contents, and has the answer come after nobody waits for it any more.
  void fetchTooLate(const ScriptedExtension::FetchScript& script = {}) {
    const auto extension = std::make_shared<ScriptedExtension>(directory.path());
    extension->file("i:1", "a.txt", "hello");
    extension->scriptFetch(script);
    extension->holdFetches();
    Provider provider(extension, store);
    provider.stop();
    EXPECT_TRUE(provider.fetch("i:1").stopped);
    EXPECT_TRUE(eventually([&] { return extension->heldFetches() == 1; }));
    // The provider's threads end with it, so the answer has come then.
    extension->releaseFetches();
  }

  const TemporaryDirectory directory;
  const TemporaryDirectory contents;
  const ContentStore store{contents.path(), directory.path(), {}};
};

TEST_F(LateAnswerTest, AFileThatComesAfterNobodyWaitsIsRemoved) {
  fetchTooLate();
  EXPECT_TRUE(std::filesystem::is_empty(directory.file("fp-download")));
}

TEST_F(LateAnswerTest, AFileThatWasNotHandedOverStaysWhereItIs) {
  const TemporaryDirectory elsewhere;
  writeFile(elsewhere.file("thesis.odt"), "hello");
  fetchTooLate({.path = elsewhere.file("thesis.odt")});
  EXPECT_EQ(readFile(elsewhere.file("thesis.odt")), "hello");
}

// What a provider cannot read looks to it as if it were not there.
class BlindProviderTest : public UploadFixture {
 protected:
  BlindProviderTest() {
    options.probe = probe;
    reopen();
    extension->folder("f:1", "Docs");
    extension->file("i:2", "inside.txt", "x", "f:1");
    downloaded("i:1", "a.txt", "hello");
  }

  void goBlind(int number) {
    extension->setListingFilter([](const ScriptedItem&) { return false; });
    extension->setLookUpError(
        platform::fileProviderError(platform::NSFileProviderErrorCode::noSuchItem));
    probe->setError(number);
  }
  void see() {
    extension->setListingFilter(nullptr);
    extension->setLookUpError(std::nullopt);
    probe->setError(0);
  }
  // What is due is tried for a while, in vain.
  void tryInVain() {
    for (int i = 0; i < 20; ++i) {
      clock += std::chrono::minutes(10);
      drain();
    }
    EXPECT_EQ(counts().pending, 1);
    EXPECT_EQ(counts().attention, 0);
  }

  const std::shared_ptr<ScriptedProbe> probe = std::make_shared<ScriptedProbe>(extension);
};

TEST_F(BlindProviderTest, ARenameWaitsUntilTheSourceCanBeReadAgain) {
  ASSERT_EQ(rename("a.txt", "b.txt"), 0);
  goBlind(EHOSTDOWN);
  tryInVain();
  see();
  pushAll();
  EXPECT_EQ(extension->find("i:1")->name, "b.txt");
  EXPECT_NE(named("b.txt"), kNoNode);
}

TEST_F(BlindProviderTest, AnEditStaysOneOfTheSameFile) {
  write(idOf("i:1"), "edited");
  goBlind(0);
  tryInVain();
  see();
  pushAll();
  EXPECT_EQ(extension->find("i:1")->contents, "edited");
  EXPECT_EQ(extension->named("a.txt").size(), 1U);
}

TEST_F(BlindProviderTest, ADeletionIsNotTakenForDone) {
  ASSERT_EQ(engine->edits().removeFile(kRootNode, "a.txt"), 0);
  goBlind(EMFILE);
  tryInVain();
  see();
  pushAll();
  EXPECT_FALSE(extension->find("i:1"));
}

TEST_F(BlindProviderTest, AFolderThatOnlyLooksEmptyIsNotDeleted) {
  const NodeId folder = idOf("f:1");
  ASSERT_EQ(refresh(folder), 0);
  ASSERT_EQ(engine->edits().removeFile(folder, "inside.txt"), 0);
  pushAll();
  ASSERT_EQ(engine->edits().removeFolder(kRootNode, "Docs"), 0);
  extension->file("i:3", "made there.txt", "new", "f:1");
  extension->setListingFilter([](const ScriptedItem&) { return false; });
  tryInVain();
  EXPECT_TRUE(extension->find("f:1"));
  see();
  pushAll();
  EXPECT_TRUE(extension->find("f:1"));
  EXPECT_TRUE(extension->find("i:3"));
}

TEST_F(BlindProviderTest, ANewFileInAFolderThatCannotBeSeenDoesNotMakeTheFolderAgain) {
  const NodeId folder = idOf("f:1");
  ASSERT_EQ(refresh(folder), 0);
  makeFile("new.txt", "x", folder);
  extension->scriptMutations(ScriptedExtension::MutationScript{
      .error = platform::fileProviderError(platform::NSFileProviderErrorCode::noSuchItem)});
  goBlind(EIO);
  tryInVain();
  extension->scriptMutations(std::nullopt);
  see();
  pushAll();
  EXPECT_EQ(extension->named("Docs").size(), 1U);
  EXPECT_EQ(extension->named("new.txt").size(), 1U);
}

}  // namespace
}  // namespace tulo::test
