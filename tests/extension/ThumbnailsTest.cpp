#include <atomic>

#include "tests/extension/ExtensionFixture.h"
#include "tests/support/ClientSocket.h"
#include "tests/support/Descriptors.h"

namespace tulo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr platform::Size anySize{128, 128};

// "IDENTIFIER: BYTES" or "IDENTIFIER: none", with the error if there is one.
std::vector<std::string> described(const ThumbnailCalls& calls) {
  std::vector<std::string> texts;
  for (const auto& call : calls.calls()) {
    const auto& [identifier, image, error] = call.arguments;
    texts.push_back(identifier + ": " + image.value_or("none") + (error ? " with an error" : ""));
  }
  return texts;
}

class ThumbnailsTest : public ExtensionFixture {
 protected:
  ThumbnailsTest() { writeFile(image_, "the image"); }

  // Nothing of a batch is ever logged.
  void TearDown() override { EXPECT_THAT(log_.lines(), IsEmpty()); }

  std::shared_ptr<Progress> start(const std::vector<std::string>& identifiers,
                                  std::function<void()> during = nullptr) {
    return extension_->fetchThumbnails(
        identifiers, anySize, thumbnails_.callback(std::move(during)), completion_.callback());
  }

  // A batch that comes to its end.
  std::shared_ptr<Progress> run(const std::vector<std::string>& identifiers) {
    auto progress = start(identifiers);
    EXPECT_TRUE(completion_.waitFor(1));
    EXPECT_EQ(completion_.argument<0>(), std::nullopt);
    return progress;
  }

  std::string replyWithImage() const {
    return platform::JSONSerialization::data({{"ok", true}, {"path", image_}});
  }

  TemporaryDirectory elsewhere_;
  const std::string image_ = elsewhere_.file("image.png");
  ThumbnailCalls thumbnails_;
  ThumbnailsCalls completion_;
};

TEST_F(ThumbnailsTest, AnEmptyListHasOneCompletionAndNothingElse) {
  const auto progress = run({});
  EXPECT_EQ(thumbnails_.count(), 0U);
  EXPECT_EQ(completion_.count(), 1U);
  EXPECT_EQ(progress->totalUnitCount(), 0);
  EXPECT_EQ(progress->completedUnitCount(), 0);
}

TEST_F(ThumbnailsTest, AFolderAFileAndAnUnparsableIdentifierAreAnsweredInOrder) {
  FakeHost host(container_.socketPath());
  host.then(replies(replyWithImage()));
  const auto progress = run({"f:F", "i:U", "unparsable"});
  EXPECT_THAT(described(thumbnails_),
              ElementsAre("f:F: none", "i:U: the image", "unparsable: none"));
  EXPECT_EQ(progress->totalUnitCount(), 3);
  EXPECT_EQ(progress->completedUnitCount(), 3);
  EXPECT_EQ(requestTo(host), (JSONObject{{"op", "thumbnail"}, {"account", "42"}, {"ulid", "U"}}));
}

TEST_F(ThumbnailsTest, TheRootHasNoThumbnail) {
  const FakeHost host(container_.socketPath());
  run({root, "", "f:"});
  EXPECT_THAT(described(thumbnails_), ElementsAre(root + ": none", ": none", "f:: none"));
  EXPECT_EQ(host.connections(), 0U);
}

TEST_F(ThumbnailsTest, ARepeatedIdentifierIsAnsweredEachTime) {
  FakeHost host(container_.socketPath());
  host.then(replies(replyWithImage()));
  run({"i:U", "i:U"});
  EXPECT_EQ(thumbnails_.count(), 2U);
  EXPECT_EQ(host.connections(), 2U);
}

TEST_F(ThumbnailsTest, TheImageIsHandedOverWholeAndStays) {
  const std::string bytes(3'000'000, '\xfe');
  writeFile(image_, bytes);
  FakeHost host(container_.socketPath());
  host.then(replies(replyWithImage()));
  run({"i:U"});
  EXPECT_EQ(thumbnails_.argument<1>(), bytes);
  EXPECT_EQ(readFile(image_), bytes);
}

TEST_F(ThumbnailsTest, AnEmptyImageIsPresent) {
  writeFile(image_, "");
  FakeHost host(container_.socketPath());
  host.then(replies(replyWithImage()));
  run({"i:U"});
  EXPECT_EQ(thumbnails_.argument<1>(), "");
}

struct FailureCase {
  const char* title;
  FakeHost::Script script;
};

class NoThumbnailTest : public ThumbnailsTest, public testing::WithParamInterface<FailureCase> {};

TEST_P(NoThumbnailTest, IsAbsentDataWithoutAnErrorAndTheBatchGoesOn) {
  FakeHost host(container_.socketPath());
  host.then(GetParam().script).then(replies(replyWithImage()));
  const auto progress = run({"i:U", "i:V"});
  EXPECT_THAT(described(thumbnails_), ElementsAre("i:U: none", "i:V: the image"));
  EXPECT_EQ(progress->completedUnitCount(), 2);
}

INSTANTIATE_TEST_SUITE_P(Failures, NoThumbnailTest,
                         testing::ValuesIn<FailureCase>({
                             {"Kind", replies(R"({"kind":"unauthorized"})")},
                             {"Error", replies(R"({"ok":false,"error":"locked"})")},
                             {"NoPath", replies(R"({"ok":true})")},
                             {"MissingFile", replies(R"({"ok":true,"path":"/does/not/exist"})")},
                             {"Directory", replies(R"({"ok":true,"path":"/"})")},
                             {"EmptyPath", replies(R"({"ok":true,"path":""})")},
                             {"NoReply", hangsUp()},
                             {"Garbage", repliesAndHangsUp("garbage")},
                         }),
                         CaseName());

TEST_F(ThumbnailsTest, AnUnreachableHostIsAbsentDataForEach) {
  const auto progress = run({"i:U", "i:V"});
  EXPECT_THAT(described(thumbnails_), ElementsAre("i:U: none", "i:V: none"));
  EXPECT_EQ(progress->completedUnitCount(), 2);
}

TEST_F(ThumbnailsTest, WithoutAContainerThereAreNone) {
  container_.vanish();
  run({"i:U"});
  EXPECT_THAT(described(thumbnails_), ElementsAre("i:U: none"));
}

TEST_F(ThumbnailsTest, AUlidThatIsNotUtf8HasNone) {
  FakeHost host(container_.socketPath());
  host.then(replies(replyWithImage()));
  run({"i:\xff"});
  EXPECT_THAT(described(thumbnails_), ElementsAre("i:\xff: none"));
}

TEST_F(ThumbnailsTest, TheRequestedSizeIsNotPassedOn) {
  FakeHost host(container_.socketPath());
  host.then(replies(replyWithImage()));
  for (const platform::Size size : {platform::Size{}, {1, 1e9}, {-1, -1}}) {
    const ThumbnailsCalls completion;
    extension_->fetchThumbnails({"i:U"}, size, thumbnails_.callback(), completion.callback());
    ASSERT_TRUE(completion.waitFor(1));
  }
  const auto requests = host.requests();
  EXPECT_THAT(requests, ElementsAre(requests[0], requests[0], requests[0]));
}

TEST_F(ThumbnailsTest, ReturnsBeforeTheHostHasAnsweredAndWaitsTwentySeconds) {
  Gate gate;
  FakeHost host(container_.socketPath());
  host.then(repliesAfter(gate, replyWithImage()));
  const auto progress = start({"i:U"});
  ASSERT_TRUE(host.waitForRequests(1));
  EXPECT_EQ(thumbnails_.count(), 0U);
  EXPECT_EQ(completion_.count(), 0U);
  EXPECT_EQ(progress->completedUnitCount(), 0);
  EXPECT_EQ(timeoutsOfClientOf(container_.socketPath()), (SocketTimeouts{20'000'000, 20'000'000}));
  gate.open();
  EXPECT_TRUE(completion_.waitFor(1));
}

TEST_F(ThumbnailsTest, TheProgressAdvancesAfterEachCall) {
  ProgressWatch watch;
  watch.of(start({"f:1", "f:2", "f:3"}, watch.during()));
  ASSERT_TRUE(completion_.waitFor(1));
  EXPECT_THAT(watch.counts(), ElementsAre(0, 1, 2));
}

TEST_F(ThumbnailsTest, TheCompletionComesLastAndOnTheWorkerOfTheBatch) {
  std::atomic<bool> wasComplete = false;
  start({"f:1", "f:2"}, [&] { wasComplete = wasComplete || completion_.count() != 0; });
  ASSERT_TRUE(completion_.waitFor(1));
  EXPECT_FALSE(wasComplete);
  const auto worker = completion_.calls().front().thread;
  EXPECT_NE(worker, std::this_thread::get_id());
  for (const auto& call : thumbnails_.calls())
    EXPECT_EQ(call.thread, worker);
}

TEST_F(ThumbnailsTest, CancellingAfterTheFirstEndsTheBatch) {
  FakeHost host(container_.socketPath());
  host.then(replies(replyWithImage()));
  std::shared_ptr<Progress> progress;
  Gate isKnown;
  progress = start({"i:1", "i:2", "i:3"}, [&] {
    if (isKnown.wait()) progress->cancel();
  });
  isKnown.open();
  ASSERT_TRUE(completion_.waitFor(1));
  EXPECT_EQ(completion_.argument<0>(), std::nullopt);
  EXPECT_THAT(described(thumbnails_), ElementsAre("i:1: the image"));
  EXPECT_EQ(progress->completedUnitCount(), 1);
  EXPECT_EQ(progress->totalUnitCount(), 3);
  EXPECT_EQ(host.connections(), 1U);
}

TEST_F(ThumbnailsTest, AHostRequestThatHasStartedRunsToItsEndDespiteCancellation) {
  Gate gate;
  FakeHost host(container_.socketPath());
  host.then(repliesAfter(gate, replyWithImage()));
  const auto progress = start({"i:1", "i:2"});
  ASSERT_TRUE(host.waitForRequests(1));
  progress->cancel();
  gate.open();
  ASSERT_TRUE(completion_.waitFor(1));
  EXPECT_THAT(described(thumbnails_), ElementsAre("i:1: the image"));
  EXPECT_EQ(progress->completedUnitCount(), 1);
  EXPECT_EQ(host.connections(), 1U);
}

TEST_F(ThumbnailsTest, TheRequestsOfABatchComeOneAtATime) {
  std::atomic<int> open = 0;
  std::atomic<int> most = 0;
  FakeHost host(container_.socketPath());
  host.then({[&](FakeHost::Peer& peer) {
               peer.readRequest();
               most = std::max(most.load(), ++open);
             },
             [&](FakeHost::Peer& peer) {
               --open;
               peer.send(replyWithImage() + "\n");
             }});
  run({"i:1", "i:2", "i:3", "i:4", "i:5"});
  EXPECT_EQ(most, 1);
  std::vector<std::string> ulids;
  for (const std::string& request : host.requests())
    ulids.push_back(
        std::get<std::string>(platform::JSONSerialization::object(request)->at("ulid")));
  EXPECT_THAT(ulids, ElementsAre("1", "2", "3", "4", "5"));
}

TEST_F(ThumbnailsTest, TwoBatchesRunAtTheSameTime) {
  Gate gate;
  FakeHost host(container_.socketPath());
  host.then(repliesAfter(gate, replyWithImage()));
  start({"i:1"});
  start({"i:2"});
  ASSERT_TRUE(host.waitForRequests(2));
  gate.open();
  ASSERT_TRUE(completion_.waitFor(2));
  EXPECT_EQ(thumbnails_.count(), 2U);
}

TEST_F(ThumbnailsTest, ClosesWhatItOpened) {
  FakeHost host(container_.socketPath());
  host.then(replies(replyWithImage())).then(hangsUp());
  const auto before = openDescriptors();
  run({"i:1", "i:2"});
  ASSERT_TRUE(host.waitUntilClosed(2));
  EXPECT_LE(openDescriptors(), before);
}

}  // namespace
}  // namespace tulo::test
