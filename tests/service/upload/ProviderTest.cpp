#include "service/upload/Provider.h"

#include <filesystem>
#include <thread>

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

TEST(LateAnswerTest, AFileThatComesAfterNobodyWaitsIsRemoved) {
  const TemporaryDirectory directory;
  const TemporaryDirectory contents;
  const ContentStore store(contents.path(), directory.path(), {});
  {
    const auto extension = std::make_shared<ScriptedExtension>(directory.path());
    extension->file("i:1", "a.txt", "hello");
    extension->holdFetches();
    Provider provider(extension, store);
    provider.stop();
    EXPECT_TRUE(provider.fetch("i:1").stopped);
    EXPECT_TRUE(eventually([&] { return extension->heldFetches() == 1; }));
    extension->releaseFetches();
  }
  // The provider's threads have ended, so the answer has come.
  EXPECT_TRUE(std::filesystem::is_empty(directory.path()));
}

}  // namespace
}  // namespace tulo::test
