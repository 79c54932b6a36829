#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "tests/service/control/ControlFixture.h"

namespace tulo::test {
namespace {

using control::ChangeState;
using control::StatusReply;

using StatusOperationTest = ControlFixture;

TEST_F(StatusOperationTest, AnIdleAccountHasNothingToTell) {
  const StatusReply reply = control::status(parts());
  EXPECT_TRUE(reply.outcome.ok);
  EXPECT_EQ(reply.domain, "test");
  EXPECT_EQ(reply.mountPoint, "/mount");
  EXPECT_EQ(reply.process, ::getpid());
  EXPECT_TRUE(reply.readWrite);
  EXPECT_TRUE(reply.listing.indexPresent);
  EXPECT_EQ(reply.listing.lastError, "");
  EXPECT_TRUE(reply.uploads.changes.empty());
  EXPECT_EQ(reply.uploads.counts, control::ChangeCounts{});
}

TEST_F(StatusOperationTest, AFailedListingSaysWhy) {
  extension->setListingError(
      platform::fileProviderError(platform::NSFileProviderErrorCode::notAuthenticated));
  commit();
  EXPECT_NE(refresh(), 0);
  EXPECT_EQ(control::status(parts()).listing.lastError, std::strerror(EKEYREJECTED));
}

TEST_F(StatusOperationTest, ADownloadUnderWayHasItsPathAndItsTime) {
  extension->file("i:1", "far.txt", "far away");
  list();
  extension->holdFetches();
  const WallSeconds before = secondsNow();
  engine->contents().fetch(idOf("i:1"), Contents::Priority::opened, [](int) {});
  ASSERT_TRUE(eventually([&] { return extension->heldFetches() == 1; }));
  const auto transfers = control::status(parts()).downloads.transfers;
  ASSERT_EQ(transfers.size(), 1U);
  EXPECT_EQ(transfers[0].path, "far.txt");
  EXPECT_EQ(transfers[0].size, 8);
  EXPECT_GE(transfers[0].since, before);
  EXPECT_TRUE(transfers[0].active);
  extension->releaseFetches();
  EXPECT_TRUE(eventually([&] { return control::status(parts()).downloads.fetched == 1; }));
}

TEST_F(StatusOperationTest, AFileThatCannotBeFetchedIsAnError) {
  extension->file("i:1", "far.txt", "far away");
  list();
  extension->scriptFetch(
      {.error = platform::fileProviderError(platform::NSFileProviderErrorCode::cannotSynchronize)});
  EXPECT_NE(openFile(idOf("i:1")).error, 0);
  const auto errors = control::status(parts()).errors;
  ASSERT_EQ(errors.size(), 1U);
  EXPECT_EQ(std::get<std::string>(errors[0].what), "far.txt");
}

TEST_F(StatusOperationTest, ChangesAreCountedAndShown) {
  refused("a?");
  makeFile("b.txt", "x");
  makeFile("c~", "stays");
  const StatusReply reply = control::status(parts());
  EXPECT_EQ(reply.uploads.counts, (control::ChangeCounts{.pending = 1, .needsAttention = 1}));
  ASSERT_EQ(reply.uploads.changes.size(), 2U);
  EXPECT_EQ(reply.uploads.localItems, 1);
  EXPECT_EQ(reply.uploads.local, std::vector<std::string>{"c~"});
  EXPECT_EQ(reply.uploads.failed, 1U);
  EXPECT_FALSE(reply.uploads.lastError.empty());
}

TEST_F(StatusOperationTest, WhatIsSentJustNowIsShownAsThat) {
  const NodeId id = makeFile("a.txt", "hello");
  StatusReply during;
  extension->scriptMutation({.before = [&] { during = control::status(parts()); }});
  push();
  ASSERT_EQ(during.uploads.uploads.size(), 1U);
  EXPECT_EQ(during.uploads.uploads[0].path, "a.txt");
  ASSERT_EQ(during.uploads.changes.size(), 1U);
  EXPECT_EQ(during.uploads.changes[0].state, ChangeState::sending);
  EXPECT_FALSE(change(id));
}

TEST_F(StatusOperationTest, TheCacheCountsWhatIsHere) {
  EXPECT_EQ(control::status(parts()).cache.used, 0);
  downloaded("i:1", "a.txt", "base");
  const auto cache = control::status(parts()).cache;
  EXPECT_GT(cache.used, 0);
  EXPECT_EQ(cache.limit, options.limits.size);
}

}  // namespace
}  // namespace tulo::test
