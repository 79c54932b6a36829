#include "service/control/Replies.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

namespace tulo::test {
namespace {

using namespace control;  // NOLINT(google-build-using-namespace): nearly all of it
using nlohmann::json;

template <typename Reply>
Reply throughText(const Reply& reply) {
  return json::parse(json(reply).dump()).get<Reply>();
}

const HostState kAway{.present = true, .reachable = false, .paused = true};
const Failures kFailed{{std::string("a.txt"), "No such file or directory"},
                       {NodeId(16), "Not a directory"}};

PendingChange change() {
  PendingChange result;
  result.path = "a";
  return result;
}

TEST(RepliesTest, AnOutcomeIsGoodWhenNothingFailed) {
  EXPECT_EQ(json(Outcome::with({})).dump(), R"({"failures":[],"ok":true})");
  EXPECT_EQ(json(Outcome::good()).dump(), R"({"ok":true})");
  EXPECT_EQ(json(Outcome::refused("no")).dump(), R"({"error":"no","ok":false})");
  EXPECT_EQ(json(Outcome::with(kFailed)).dump(),
            R"({"failures":[{"error":"No such file or directory","path":"a.txt"},)"
            R"({"error":"Not a directory","node":16}],"ok":false})");
}

TEST(RepliesTest, TheWireTextStaysAsItIs) {
  EXPECT_EQ(json(FilesReply{Outcome::with({}), 2}).dump(),
            R"({"failures":[],"files":2,"ok":true})");
  EXPECT_EQ(json(ChangesReply{Outcome::with({}), {}}).dump(),
            R"({"changes":[],"failures":[],"ok":true})");
  EXPECT_EQ(json(FlushReply{Outcome::with({}), {1, 2}, {}, kAway}).dump(),
            R"({"changes":[],"failures":[],"hostPresent":true,"hostReachable":false,)"
            R"("needsAttention":2,"ok":true,"paused":true,"pending":1})");
  EXPECT_EQ(json(RetryReply{Outcome::good(), 3}).dump(), R"({"ok":true,"retried":3})");
  EXPECT_EQ(json(DiscardReply{Outcome::with({}), 3}).dump(),
            R"({"discarded":3,"failures":[],"ok":true})");
  EXPECT_EQ(json(UnmountReply{Outcome::good(), {3, 0}}).dump(),
            R"({"needsAttention":0,"ok":true,"pending":3})");
  EXPECT_EQ(json(UnmountReply{Outcome::good(), {}, {{7, "vim", "/m/a"}}, true, true}).dump(),
            R"({"goesOn":true,"needsAttention":0,"notWritten":true,"ok":true,"pending":0,)"
            R"("programs":[{"name":"vim","path":"/m/a","process":7}]})");
}

TEST(RepliesTest, TheProgressIsALineOfItsOwn) {
  EXPECT_EQ(progressLine(FilesProgress{1, 2}).dump(), R"({"progress":{"done":1,"total":2}})");
  EXPECT_EQ(progressLine(FlushProgress{3, kAway}).dump(),
            R"({"progress":{"hostPresent":true,"hostReachable":false,"left":3,"paused":true}})");
  const auto told = progressIn(progressLine(FlushProgress{3, kAway}));
  ASSERT_TRUE(told);
  EXPECT_EQ(told->get<FlushProgress>(), (FlushProgress{3, kAway}));
  EXPECT_FALSE(progressIn(json(FilesReply{})));
}

TEST(RepliesTest, AReplyComesOutAsItWentIn) {
  const Outcome failed = Outcome::with(kFailed);
  const FilesReply files{failed, 9};
  EXPECT_EQ(throughText(files), files);
  const ChangesReply changes{failed, {change()}};
  EXPECT_EQ(throughText(changes), changes);
  const FlushReply flush{failed, {1, 2}, {change()}, kAway};
  EXPECT_EQ(throughText(flush), flush);
  const RetryReply retry{Outcome::good(), 4};
  EXPECT_EQ(throughText(retry), retry);
  const DiscardReply discard{failed, 5};
  EXPECT_EQ(throughText(discard), discard);
  const UnmountReply unmount{Outcome::good(), {6, 7}};
  EXPECT_EQ(throughText(unmount), unmount);
  const UnmountReply inUse{Outcome::refused("in use"), {}, {{7, "vim", "/m/a"}}, true, true};
  EXPECT_EQ(throughText(inUse), inUse);
}

TEST(RepliesTest, EveryReplyCanBeReadFromARefusal) {
  const json refusal = Outcome::refused("unknown operation: x");
  EXPECT_EQ(refusal.get<FlushReply>().outcome.error, "unknown operation: x");
  EXPECT_FALSE(refusal.get<ChangesReply>().outcome.ok);
  EXPECT_FALSE(refusal.get<UnmountReply>().outcome.ok);
}

TEST(RepliesTest, AMissingAnswerIsNotGoodAndAMissingHostIsNotInTheWay) {
  EXPECT_FALSE(json::object().get<Outcome>().ok);
  EXPECT_EQ(json::object().get<HostState>(), HostState{});
  EXPECT_TRUE(HostState{}.present && HostState{}.reachable && !HostState{}.paused);
  EXPECT_EQ(json::object().get<FlushReply>().left, ChangeCounts{});
}

TEST(RepliesTest, FieldsThatNobodyKnowsAreIgnored) {
  EXPECT_EQ(json::parse(R"({"ok":true,"files":2,"later":[]})").get<FilesReply>().files, 2U);
}

TEST(RepliesTest, AFieldOfAnotherTypeIsNoReply) {
  EXPECT_THROW(json::parse(R"({"ok":"yes"})").get<Outcome>(), json::exception);
  EXPECT_THROW(json::parse(R"({"files":"two"})").get<FilesReply>(), json::exception);
}

}  // namespace
}  // namespace tulo::test
