#include "service/control/StatusReply.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

namespace tulo::test {
namespace {

using control::StatusReply;
using control::Transfer;
using nlohmann::json;

StatusReply full() {
  StatusReply reply;
  reply.outcome = control::Outcome::good();
  reply.domain = "primary";
  reply.mountPoint = "/mount";
  reply.process = 7;
  reply.readWrite = true;
  reply.openFiles = 1;
  reply.kernelFolders = 2;
  reply.listing = {true, "Input/output error", 3, "anchor", 4, 5, 6};
  reply.cache = {.used = 8, .limit = 9, .incoming = 10};
  reply.downloads = {
      11, 12, 13, 14, {Transfer{"a", 15, WallSeconds(seconds(1'700'000'000)), true, true}}};
  reply.uploads.host = {.present = true, .reachable = false, .paused = true};
  reply.uploads.counts = {.pending = 16, .needsAttention = 17};
  reply.uploads.uploading = 18;
  reply.uploads.sent = 19;
  reply.uploads.failed = 20;
  reply.uploads.conflicts = 21;
  reply.uploads.lastError = "full";
  reply.uploads.localItems = 22;
  reply.uploads.local = {"b~"};
  reply.errors = {{std::string("c"), "gone"}};
  return reply;
}

TEST(StatusReplyTest, TheWireTextStaysAsItIs) {
  EXPECT_EQ(
      json(full()).dump(),
      R"({"anchor":"anchor","cache":{"incoming":10,"limit":9,"used":8},"changes":[],)"
      R"("conflicts":21,"deniedDownloads":13,"domain":"primary","errors":[{"error":"gone",)"
      R"("path":"c"}],"evicted":14,"failedFetches":12,"failedUploads":20,"fetched":11,)"
      R"("generation":3,"hostPresent":true,"hostReachable":false,"indexPresent":true,)"
      R"("kernelFolders":2,"lastListingError":"Input/output error","lastUploadError":"full",)"
      R"("listings":4,"local":["b~"],"localItems":22,"mountPoint":"/mount","needsAttention":17,)"
      R"("ok":true,"openFiles":1,"paused":true,"pending":16,"process":7,"readWrite":true,)"
      R"("sent":19,"staleFolders":6,"transfers":[{"active":true,"ahead":true,"path":"a",)"
      R"("since":1700000000,"size":15}],"unchangedListings":5,"uploading":18,"uploads":[]})");
}

TEST(StatusReplyTest, AStatusComesOutAsItWentIn) {
  EXPECT_EQ(json::parse(json(full()).dump()).get<StatusReply>(), full());
}

TEST(StatusReplyTest, WhatIsKeptOfAnotherAccountIsToldWhereThereIsAny) {
  StatusReply reply;
  EXPECT_FALSE(json(reply).contains("kept"));
  reply.kept = {{"/containers/ann", 3, "/state/kept/1/files"}};
  EXPECT_EQ(json(reply)["kept"].dump(),
            R"([{"changes":3,"container":"/containers/ann","files":"/state/kept/1/files"}])");
  EXPECT_EQ(json::parse(json(reply).dump()).get<StatusReply>().kept, reply.kept);
}

TEST(StatusReplyTest, MissingFieldsLeaveAnIdleAccount) {
  const auto reply = json::parse(R"({"ok":true,"mountPoint":"/m","later":1})").get<StatusReply>();
  StatusReply idle;
  idle.outcome = control::Outcome::good();
  idle.mountPoint = "/m";
  EXPECT_EQ(reply, idle);
}

TEST(StatusReplyTest, AFieldOfAnotherTypeIsNoStatus) {
  EXPECT_THROW(json::parse(R"({"transfers":7})").get<StatusReply>(), json::exception);
  EXPECT_THROW(json::parse(R"({"transfers":[{}]})").get<StatusReply>(), json::exception);
}

}  // namespace
}  // namespace tulo::test
