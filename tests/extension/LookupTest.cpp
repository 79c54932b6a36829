#include <atomic>
#include <thread>

#include "tests/extension/ExtensionFixture.h"
#include "tests/support/Descriptors.h"

namespace tulo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class LookupTest : public ExtensionFixture {
 protected:
  // The call comes before the request returns, on its thread, and the progress ends with it.
  ItemCalls lookedUp(const std::string& identifier) const {
    ItemCalls calls;
    const auto progress = extension_->item(identifier, {}, calls.callback());
    EXPECT_EQ(calls.count(), 1U);
    EXPECT_EQ(calls.calls().at(0).thread, std::this_thread::get_id());
    EXPECT_EQ(progress->totalUnitCount(), 1);
    EXPECT_EQ(progress->completedUnitCount(), 1);
    return calls;
  }

  void expectNoSuchItem(const std::string& identifier) const {
    const auto calls = lookedUp(identifier);
    EXPECT_EQ(calls.argument<0>(), nullptr) << identifier;
    EXPECT_EQ(calls.argument<1>(), noSuchItem) << identifier;
  }

  std::string found(const std::string& identifier) const {
    const auto calls = lookedUp(identifier);
    EXPECT_EQ(calls.argument<1>(), std::nullopt);
    const auto item = calls.argument<0>();
    return item ? described(*item) : "none";
  }
};

TEST_F(LookupTest, TheRootNeedsNoIndex) {
  EXPECT_EQ(found(root), root + likeTheRoot);
  container_.vanish();
  EXPECT_EQ(found(root), root + likeTheRoot);
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(LookupTest, AFolderIsItsRow) {
  builder().folder("F", "Docs").folder("G", "inner", "F");
  EXPECT_EQ(found("f:G"),
            "f:G in f:F named inner type public.folder may 47 size none modified none uploaded"
            " version 0 / 0-inner");
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(LookupTest, AFileIsItsRowUnderTheNameOfTheListing) {
  builder().folder("G", "Docs.pdf", "F").file({"01AAAAAA", "docs.pdf", "F", 5, 6, 7, 8});
  EXPECT_EQ(found("i:01AAAAAA"),
            "i:01AAAAAA in f:F named docs (AAAAAA).pdf type com.adobe.pdf may 1 size 5 modified 6"
            " uploaded version 7 / 7-docs (AAAAAA).pdf");
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(LookupTest, ThePrefixDecidesWhichTableIsSearched) {
  builder().folder("F", "Docs").file({.ulid = "U", .name = "a"});
  expectNoSuchItem("i:F");
  expectNoSuchItem("f:U");
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(LookupTest, EmptyAndUnknownUlidsAreNoSuchItem) {
  builder().folder("F", "Docs").file({.ulid = "U", .name = "a"});
  for (const char* identifier : {"f:", "i:", "f:nobody", "i:nobody", "i:U ", "i:u"})
    expectNoSuchItem(identifier);
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(LookupTest, IdentifiersOfNoKnownFormAreNoSuchItemWithoutTheIndex) {
  for (const std::string& identifier :
       {std::string(), std::string("U"), std::string("F:U"), std::string("x:U"),
        platform::NSFileProviderWorkingSetContainerItemIdentifier(),
        platform::NSFileProviderTrashContainerItemIdentifier()})
    expectNoSuchItem(identifier);
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(LookupTest, WithoutAnIndexNothingIsFound) {
  expectNoSuchItem("f:F");
  expectNoSuchItem("i:U");
  EXPECT_THAT(log_.lines(), ElementsAre(noIndex(), noIndex()));
}

TEST_F(LookupTest, WithAnUnreadableIndexNothingIsFound) {
  writeFile(path(), std::string(4096, 'x'));
  expectNoSuchItem("i:U");
  EXPECT_THAT(log_.lines(), ElementsAre(indexError("prepare failed: file is not a database")));
}

TEST_F(LookupTest, HoldsNothingOpenAfterACall) {
  builder().file({.ulid = "U", .name = "a"});
  const auto before = openDescriptors();
  found("i:U");
  expectNoSuchItem("i:V");
  EXPECT_LE(openDescriptors(), before);
}

TEST_F(LookupTest, EveryIdentifierHasAnEnumerator) {
  builder().folder("F", "Docs").file({.ulid = "U", .name = "a", .folder = "F"});
  for (const std::string& identifier :
       {root, std::string("f:F"), std::string("i:U"), std::string("anything"), std::string(),
        platform::NSFileProviderWorkingSetContainerItemIdentifier(),
        platform::NSFileProviderTrashContainerItemIdentifier()}) {
    const auto enumerator = extension_->enumerator(identifier, {});
    ASSERT_TRUE(enumerator);
    const auto observer = std::make_shared<RecordingObserver>();
    enumerator->enumerateItems(observer, "");
    const bool isFolder = identifier == root || identifier == "f:F";
    EXPECT_THAT(observer->calls(), ElementsAre(isFolder ? "items 1" : "items 0", "finished"));
  }
}

TEST_F(LookupTest, TheEnumeratorReadsTheDomainsIndex) {
  builder().folder("F", "of account 42");
  IndexBuilder(container_.file("state.db")).folder("F", "of the primary account");
  const auto observer = std::make_shared<RecordingObserver>();
  extension_->enumerator(root, {})->enumerateItems(observer, "");
  EXPECT_THAT(observer->filenames(), ElementsAre("of account 42"));
}

TEST_F(LookupTest, AnEnumeratorOutlivesItsExtension) {
  builder().folder("F", "Docs");
  const auto enumerator = extension_->enumerator(root, {});
  extension_.reset();
  const auto observer = std::make_shared<RecordingObserver>();
  enumerator->enumerateItems(observer, "");
  EXPECT_THAT(observer->filenames(), ElementsAre("Docs"));
}

TEST_F(LookupTest, ServesManyThreadsAtOnce) {
  builder().folder("F", "Docs").file({.ulid = "01AAAAAA", .name = "docs"});
  std::atomic<int> wrong = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i)
    threads.emplace_back([&] {
      for (int round = 0; round < 20; ++round) {
        const ItemCalls calls;
        extension_->item("i:01AAAAAA", {}, calls.callback());
        if (calls.argument<0>()->filename() != "docs (AAAAAA)") ++wrong;
      }
    });
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_EQ(wrong, 0);
}

}  // namespace
}  // namespace tulo::test
