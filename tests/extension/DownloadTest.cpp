#include <set>

#include "tests/extension/ExtensionFixture.h"
#include "tests/support/ClientSocket.h"
#include "tests/support/Descriptors.h"

namespace tulo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* delivered = R"({"ok":true,"path":"/downloads/file"})";

class DownloadTest : public ExtensionFixture {
 protected:
  // The one call of a download that has come to its end.
  FetchCalls fetched(const std::string& identifier = "i:U") const {
    FetchCalls calls;
    ProgressWatch watch;
    const auto progress = watch.of(
        extension_->fetchContents(identifier, std::nullopt, {}, calls.callback(watch.during())));
    EXPECT_TRUE(calls.waitFor(1));
    EXPECT_TRUE(completes(*progress));
    EXPECT_EQ(calls.count(), 1U);
    EXPECT_EQ(progress->totalUnitCount(), 1);
    EXPECT_THAT(watch.counts(), ElementsAre(0)) << "completed before the completion had run";
    EXPECT_NE(calls.calls().at(0).thread, std::this_thread::get_id());
    return calls;
  }

  void expectNoSuchItemAtOnce(const std::string& identifier) const {
    const FetchCalls calls;
    const auto progress = extension_->fetchContents(identifier, std::nullopt, {}, calls.callback());
    ASSERT_EQ(calls.count(), 1U) << identifier;
    EXPECT_EQ(calls.calls().front().thread, std::this_thread::get_id());
    EXPECT_EQ(calls.argument<0>(), std::nullopt);
    EXPECT_EQ(calls.argument<1>(), nullptr);
    EXPECT_EQ(calls.argument<2>(), noSuchItem);
    EXPECT_EQ(progress->totalUnitCount(), 1);
    EXPECT_EQ(progress->completedUnitCount(), 1);
  }

  static void expectFailure(const FetchCalls& calls, const NSError& error) {
    EXPECT_EQ(calls.argument<0>(), std::nullopt);
    EXPECT_EQ(calls.argument<1>(), nullptr);
    EXPECT_EQ(calls.argument<2>(), error);
  }
};

TEST_F(DownloadTest, GivesTheHostsFileAndTheRow) {
  builder().folder("G", "Docs.pdf", "F").file({"01AAAAAA", "docs.pdf", "F", 5, 6, 7, 8});
  FakeHost host(container_.socketPath());
  host.then(replies(delivered));
  const auto calls = fetched("i:01AAAAAA");
  EXPECT_EQ(calls.argument<0>(), URL("/downloads/file"));
  EXPECT_EQ(described(*calls.argument<1>()),
            "i:01AAAAAA in f:F named docs (AAAAAA).pdf type com.adobe.pdf may 1 size 5 modified 6"
            " uploaded version 7 / 7-docs (AAAAAA).pdf");
  EXPECT_EQ(calls.argument<2>(), std::nullopt);
  EXPECT_EQ(requestTo(host),
            (JSONObject{{"op", "fetch"}, {"account", "42"}, {"ulid", "01AAAAAA"}}));
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(DownloadTest, TheRowIsReadAfterTheDownload) {
  auto index = builder();
  FakeHost host(container_.socketPath());
  host.then(repliesWith([&](const std::string&) {
    index.file({.ulid = "U", .name = "just written", .version = 2});
    return delivered;
  }));
  EXPECT_EQ(fetched().argument<1>()->filename(), "just written");
}

TEST_F(DownloadTest, AFileThatVanishedFromTheIndexIsDeliveredWithoutAnItem) {
  builder();
  FakeHost host(container_.socketPath());
  host.then(replies(delivered));
  const auto calls = fetched();
  EXPECT_EQ(calls.argument<0>(), URL("/downloads/file"));
  EXPECT_EQ(calls.argument<1>(), nullptr);
  EXPECT_EQ(calls.argument<2>(), std::nullopt);
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(DownloadTest, AFileThatIsNowAFolderIsDeliveredWithoutAnItem) {
  builder().folder("U", "Docs");
  FakeHost host(container_.socketPath());
  host.then(replies(delivered));
  EXPECT_EQ(fetched().argument<1>(), nullptr);
}

TEST_F(DownloadTest, WithoutAnIndexTheFileIsDeliveredWithoutAnItem) {
  FakeHost host(container_.socketPath());
  host.then(replies(delivered));
  const auto calls = fetched();
  EXPECT_EQ(calls.argument<0>(), URL("/downloads/file"));
  EXPECT_EQ(calls.argument<1>(), nullptr);
  EXPECT_EQ(calls.argument<2>(), std::nullopt);
  EXPECT_THAT(log_.lines(), ElementsAre(noIndex()));
}

TEST_F(DownloadTest, WhatNamesNoFileIsNoSuchItemAtOnceWithoutTheHost) {
  const FakeHost host(container_.socketPath());
  for (const std::string& identifier :
       {std::string("f:F"), std::string("f:"), root, std::string("U"), std::string(),
        platform::NSFileProviderWorkingSetContainerItemIdentifier()})
    expectNoSuchItemAtOnce(identifier);
  EXPECT_EQ(host.connections(), 0U);
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(DownloadTest, TheHostDecidesAboutAnEmptyUlid) {
  FakeHost host(container_.socketPath());
  host.then(replies(R"({"ok":false,"kind":"not_found","error":"E"})"));
  expectFailure(fetched("i:"), noSuchItem);
  EXPECT_EQ(requestTo(host), (JSONObject{{"op", "fetch"}, {"account", "42"}, {"ulid", ""}}));
}

TEST_F(DownloadTest, AHostThatIsNotRunningIsUnreachableAndToldAsInformation) {
  expectFailure(fetched(), serverUnreachable);
  EXPECT_THAT(log_.lines(), ElementsAre(extensionInfo("host app unreachable for U")));
}

TEST_F(DownloadTest, WithoutAContainerTheHostIsUnreachable) {
  container_.vanish();
  expectFailure(fetched(), serverUnreachable);
  EXPECT_THAT(log_.lines(), ElementsAre(extensionInfo("host app unreachable for U")));
}

struct FailureCase {
  const char* title;
  FakeHost::Script script;
  NSError expected;
  std::string logged;
};

class DownloadFailureTest : public DownloadTest, public testing::WithParamInterface<FailureCase> {};

TEST_P(DownloadFailureTest, IsMappedAndLoggedAndTheIndexIsLeftAlone) {
  FakeHost host(container_.socketPath());
  host.then(GetParam().script);
  expectFailure(fetched(), GetParam().expected);
  // There is no index: had it been opened, it would have said so.
  EXPECT_THAT(log_.lines(),
              ElementsAre(extensionError("fetch failed for U: " + GetParam().logged)));
}

INSTANTIATE_TEST_SUITE_P(
    Failures, DownloadFailureTest,
    testing::ValuesIn<FailureCase>({
        {"Kind", replies(R"({"kind":"unauthorized","error":"E"})"),
         fileProviderError(NSFileProviderErrorCode::notAuthenticated),
         R"(remote(kind: "unauthorized", message: "E"))"},
        {"DiskFull", replies(R"({"kind":"disk_full","error":"E"})"), platform::cocoaError(640),
         R"(remote(kind: "disk_full", message: "E"))"},
        {"Text", replies(R"({"ok":false,"error":"wird bearbeitet"})"), serverUnreachable,
         R"(failed("wird bearbeitet"))"},
        {"NoPath", replies(R"({"ok":true,"path":null})"), cannotSynchronize,
         R"(failed("host app returned no path"))"},
        {"NoReply", hangsUp(), cannotSynchronize, R"(failed("no reply from host app"))"},
        {"Garbage", repliesAndHangsUp("garbage"), cannotSynchronize,
         R"(failed("no reply from host app"))"},
    }),
    CaseName());

TEST_F(DownloadTest, ATextThatIsNotUtf8CannotBeSynchronized) {
  FakeHost host(container_.socketPath());
  host.then(replies(delivered));
  expectFailure(fetched("i:\xff"), cannotSynchronize);
  ASSERT_EQ(log_.lines().size(), 1U);
  EXPECT_THAT(log_.lines()[0].message, testing::StartsWith("fetch failed for \xff: "));
}

TEST_F(DownloadTest, ReturnsBeforeTheHostHasAnswered) {
  Gate gate;
  FakeHost host(container_.socketPath());
  host.then(repliesAfter(gate, delivered));
  const FetchCalls calls;
  const auto progress = extension_->fetchContents("i:U", std::nullopt, {}, calls.callback());
  ASSERT_TRUE(host.waitForRequests(1));
  EXPECT_EQ(calls.count(), 0U);
  EXPECT_EQ(progress->completedUnitCount(), 0);
  gate.open();
  EXPECT_TRUE(calls.waitFor(1));
}

TEST_F(DownloadTest, WaitsForFiveMinutes) {
  Gate gate;
  FakeHost host(container_.socketPath());
  host.then(repliesAfter(gate, delivered));
  const FetchCalls calls;
  extension_->fetchContents("i:U", std::nullopt, {}, calls.callback());
  ASSERT_TRUE(host.waitForRequests(1));
  EXPECT_EQ(timeoutsOfClientOf(container_.socketPath()),
            (SocketTimeouts{300'000'000, 300'000'000}));
  gate.open();
  EXPECT_TRUE(calls.waitFor(1));
}

TEST_F(DownloadTest, CancellationIsNotObserved) {
  Gate gate;
  FakeHost host(container_.socketPath());
  host.then(repliesAfter(gate, delivered));
  const FetchCalls calls;
  const auto progress = extension_->fetchContents("i:U", std::nullopt, {}, calls.callback());
  ASSERT_TRUE(host.waitForRequests(1));
  progress->cancel();
  gate.open();
  ASSERT_TRUE(calls.waitFor(1));
  EXPECT_EQ(calls.argument<0>(), URL("/downloads/file"));
  EXPECT_TRUE(completes(*progress));
}

TEST_F(DownloadTest, IgnoresTheRequestedVersionAndWhoAsks) {
  FakeHost host(container_.socketPath());
  host.then(replies(delivered));
  const FetchCalls calls;
  extension_->fetchContents("i:U", platform::NSFileProviderItemVersion{"1", "1-old"}, {true, true},
                            calls.callback());
  ASSERT_TRUE(calls.waitFor(1));
  EXPECT_EQ(requestTo(host), (JSONObject{{"op", "fetch"}, {"account", "42"}, {"ulid", "U"}}));
}

TEST_F(DownloadTest, ManyDownloadsWaitForTheHostAtOnce) {
  constexpr std::size_t count = 24;
  Gate gate;
  FakeHost host(container_.socketPath());
  host.then(repliesAfter(gate, delivered));
  const FetchCalls calls;
  for (std::size_t i = 0; i < count; ++i)
    extension_->fetchContents("i:" + std::to_string(i), std::nullopt, {}, calls.callback());
  ASSERT_TRUE(host.waitForRequests(count));
  EXPECT_EQ(calls.count(), 0U);
  gate.open();
  ASSERT_TRUE(calls.waitFor(count));
  const auto requests = host.requests();
  EXPECT_EQ(std::set<std::string>(requests.begin(), requests.end()).size(), count);
}

TEST_F(DownloadTest, ClosesWhatItOpened) {
  builder().file({.ulid = "U", .name = "a"});
  FakeHost host(container_.socketPath());
  host.then(replies(delivered)).then(hangsUp());
  const auto before = openDescriptors();
  fetched();
  fetched();
  ASSERT_TRUE(host.waitUntilClosed(2));
  EXPECT_LE(openDescriptors(), before);
}

}  // namespace
}  // namespace tulo::test
