#include <gmock/gmock.h>

#include <filesystem>
#include <type_traits>

#include "presentation/DirectoryEnumerator.h"
#include "presentation/TuloItem.h"
#include "tests/extension/ExtensionFixture.h"

namespace tulo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// There is no extension, item or enumerator without what it is made of.
static_assert(!std::is_default_constructible_v<FileProviderExtension>);
static_assert(!std::is_default_constructible_v<TuloItem>);
static_assert(!std::is_default_constructible_v<DirectoryEnumerator>);

class EntryTest : public testing::Test {
 protected:
  static std::string domain(const std::string& account) { return Index::domainPrefix() + account; }

  static ItemCalls lookedUp(FileProviderExtension& extension, const std::string& identifier) {
    ItemCalls calls;
    extension.item(identifier, {}, calls.callback());
    return calls;
  }

  Container container_;
  LogRecorder log_;
};

TEST_F(EntryTest, LogsItsDomainAndIndexOnce) {
  extensionFor(domain("42"));
  EXPECT_THAT(log_.lines(), ElementsAre(extensionInfo("init for domain " + domain("42") +
                                                      " (index state-42.db)")));
}

TEST_F(EntryTest, ADomainWithoutThePrefixUsesThePrimaryIndex) {
  extensionFor("other.domain");
  EXPECT_THAT(log_.lines(),
              ElementsAre(extensionInfo("init for domain other.domain (index state.db)")));
}

TEST_F(EntryTest, KeepsTheDomainThatItWasGiven) {
  const auto given = std::make_shared<platform::NSFileProviderDomain>(domain("42"), "Tulo Hub");
  const FileProviderExtension extension(given);
  EXPECT_EQ(extension.domain(), given);
}

TEST_F(EntryTest, OpensNothingAtItsStart) {
  extensionFor(domain("42"));
  EXPECT_TRUE(std::filesystem::is_empty(container_.path()));
  container_.vanish();
  log_.clear();
  extensionFor(domain("42"));
  EXPECT_EQ(log_.lines().size(), 1U);
}

TEST_F(EntryTest, TheIndexMayComeLater) {
  const auto extension = extensionFor(domain("42"));
  EXPECT_EQ(lookedUp(*extension, "f:F").argument<1>(), noSuchItem);
  IndexBuilder(container_.file("state-42.db")).folder("F", "Docs");
  EXPECT_EQ(lookedUp(*extension, "f:F").argument<0>()->filename(), "Docs");
}

TEST_F(EntryTest, TwoDomainsAreIndependent) {
  IndexBuilder(container_.file("state-1.db")).folder("F", "of the first");
  IndexBuilder(container_.file("state-2.db")).folder("F", "of the second");
  const auto first = extensionFor(domain("1"));
  const auto second = extensionFor(domain("2"));
  EXPECT_EQ(lookedUp(*first, "f:F").argument<0>()->filename(), "of the first");
  EXPECT_EQ(lookedUp(*second, "f:F").argument<0>()->filename(), "of the second");
}

TEST_F(EntryTest, EachDomainTellsTheHostItsAccount) {
  FakeHost host(container_.socketPath());
  host.then(replies(R"({"ok":true})"));
  for (const std::string& identifier : {domain("1"), domain(""), std::string("other.domain")}) {
    const DeleteCalls calls;
    extensionFor(identifier)->deleteItem("i:U", {}, 0, {}, calls.callback());
    ASSERT_TRUE(calls.waitFor(1));
  }
  std::vector<std::string> accounts;
  for (const std::string& request : host.requests())
    accounts.push_back(
        std::get<std::string>(platform::JSONSerialization::object(request)->at("account")));
  EXPECT_THAT(accounts, ElementsAre("1", "", "primary"));
}

TEST_F(EntryTest, RequestsWorkAfterInvalidation) {
  IndexBuilder(container_.file("state.db")).folder("F", "Docs");
  const auto extension = extensionFor(domain("primary"));
  log_.clear();
  extension->invalidate();
  EXPECT_THAT(log_.lines(), IsEmpty());
  EXPECT_EQ(lookedUp(*extension, "f:F").argument<0>()->filename(), "Docs");
}

TEST_F(EntryTest, RunningRequestsEndAsUsualAfterInvalidationAndRelease) {
  Gate gate;
  FakeHost host(container_.socketPath());
  host.then(repliesAfter(gate, R"({"ok":true})"));
  auto extension = extensionFor(domain("primary"));
  const DeleteCalls calls;
  const auto progress = extension->deleteItem("i:U", {}, 0, {}, calls.callback());
  ASSERT_TRUE(host.waitForRequests(1));
  extension->invalidate();
  extension.reset();
  EXPECT_EQ(calls.count(), 0U);
  gate.open();
  ASSERT_TRUE(calls.waitFor(1));
  EXPECT_EQ(calls.argument<0>(), std::nullopt);
  EXPECT_TRUE(completes(*progress));
}

}  // namespace
}  // namespace tulo::test
