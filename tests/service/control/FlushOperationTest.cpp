#include <gtest/gtest.h>

#include "tests/service/control/ControlFixture.h"

namespace tulo::test {
namespace {

using control::FlushProgress;
using control::FlushReply;
using control::FlushRequest;

class FlushOperationTest : public ControlFixture {
 protected:
  FlushReply flush(const FlushRequest& request) {
    return control::flush(parts(), request, [this](const FlushProgress& told) {
      progress.push_back(told);
      return listening;
    });
  }

  std::vector<FlushProgress> progress;
  bool listening = true;
};

TEST_F(FlushOperationTest, ItSendsBeforeTheQuietTimeIsOver) {
  makeFile("a.txt", "hello");
  EXPECT_EQ(drain(), 0U);
  const FlushReply reply = flush({});
  EXPECT_TRUE(reply.outcome.ok);
  EXPECT_EQ(reply.left.pending, 1);
  EXPECT_EQ(reply.changes.at(0).path, "a.txt");
  drain();
  EXPECT_EQ(hostContents("a.txt"), "hello");
  EXPECT_EQ(flush({}).left.pending, 0);
}

TEST_F(FlushOperationTest, OfAFolderItLeavesTheOthers) {
  const NodeId folder = makeFolder("Docs");
  makeFile("inside", "x", folder);
  makeFile("beside", "x");
  EXPECT_EQ(flush({.about = nodes({folder})}).left.pending, 2);
  drain();
  EXPECT_EQ(sentNames(), (std::vector<std::string>{"Docs", "inside"}));
}

TEST_F(FlushOperationTest, ItWaitsNoLongerThanItMay) {
  makeFile("a.txt", "hello");
  // Nobody sends in this test.
  const FlushReply reply = flush({.about = {}, .wait = true, .timeout = milliseconds(1)});
  EXPECT_EQ(reply.left.pending, 1);
  EXPECT_TRUE(reply.host.present);
  EXPECT_EQ(progress.at(0).left, 1);
}

TEST_F(FlushOperationTest, ItEndsWhenNobodyListens) {
  makeFile("a.txt", "hello");
  listening = false;
  EXPECT_EQ(flush({.about = {}, .wait = true}).left.pending, 1);
  EXPECT_EQ(progress.size(), 1U);
}

TEST_F(FlushOperationTest, WaitingForNothingEndsAtOnce) {
  EXPECT_EQ(flush({.about = {}, .wait = true}).left, control::ChangeCounts{});
  EXPECT_TRUE(progress.empty());
}

TEST_F(FlushOperationTest, WhatWasRefusedIsNotWaitedForAndComesFirst) {
  refused("a?");
  makeFile("b.txt", "x");
  const FlushReply reply = flush({.about = {}, .wait = true, .timeout = milliseconds(1)});
  EXPECT_EQ(reply.left, (control::ChangeCounts{.pending = 1, .needsAttention = 1}));
  ASSERT_EQ(reply.changes.size(), 2U);
  EXPECT_EQ(reply.changes[0].path, "a?");
}

TEST_F(FlushOperationTest, AReadOnlyMountSendsNothing) {
  makeFile("a.txt", "hello");
  options.readWrite = false;
  reopen();
  const FlushReply reply = flush({.about = {}, .wait = true});
  EXPECT_FALSE(reply.outcome.ok);
  EXPECT_EQ(reply.left.pending, 1);
  EXPECT_NE(reply.outcome.error.value_or("").find("read-only"), std::string::npos);
}

}  // namespace
}  // namespace tulo::test
