#include "service/contents/DownloadQueue.h"

#include <gtest/gtest.h>

#include <cerrno>

namespace tulo::test {
namespace {

class DownloadQueueTest : public testing::Test {
 protected:
  bool add(std::uint64_t node, DownloadPriority priority = DownloadPriority::opened) {
    FetchCompletion completion = [this, node](int error) { told.emplace_back(node, error); };
    return queue.add(NodeId(node), priority, completion);
  }
  bool addAhead(std::uint64_t node) { return add(node, DownloadPriority::ahead); }

  std::uint64_t beginNext() {
    const DownloadPointer next = queue.next();
    if (!next) return 0;
    running.push_back(next);
    return next->node.number();
  }

  void end(const Download& download, int error) {
    for (const FetchCompletion& waiter : queue.remove(download))
      waiter(error);
  }

  DownloadQueue queue;
  std::vector<DownloadPointer> running;
  std::vector<std::pair<std::uint64_t, int>> told;
};

TEST_F(DownloadQueueTest, BeginsInOrderOfArrival) {
  add(3);
  add(1);
  add(2);
  EXPECT_EQ(beginNext(), 3U);
  EXPECT_EQ(beginNext(), 1U);
  EXPECT_EQ(beginNext(), 2U);
  EXPECT_EQ(beginNext(), 0U);
}

TEST_F(DownloadQueueTest, OneDownloadIsForAllWhoWantTheFile) {
  add(1);
  add(1);
  EXPECT_EQ(beginNext(), 1U);
  EXPECT_EQ(beginNext(), 0U);
  add(1);
  EXPECT_EQ(beginNext(), 0U);
  end(*running[0], 0);
  EXPECT_EQ(told.size(), 3U);
  end(*running[0], EIO);
  EXPECT_EQ(told.size(), 3U);
}

TEST_F(DownloadQueueTest, WhatSomebodyWaitsForGoesFirst) {
  addAhead(1);
  add(2);
  EXPECT_EQ(beginNext(), 2U);
  EXPECT_EQ(beginNext(), 1U);
}

TEST_F(DownloadQueueTest, WhatIsFetchedAheadHurriesOnceSomebodyWaitsForIt) {
  addAhead(1);
  addAhead(2);
  add(2);
  EXPECT_EQ(beginNext(), 2U);
  EXPECT_FALSE(queue.transfers()[0].node == NodeId(2) ? queue.transfers()[0].ahead
                                                      : queue.transfers()[1].ahead);
  EXPECT_EQ(beginNext(), 1U);
  EXPECT_EQ(beginNext(), 0U);
}

TEST_F(DownloadQueueTest, OnlyAFewRunAheadAtATime) {
  for (std::uint64_t node = 1; node <= 10; ++node)
    addAhead(node);
  for (std::size_t i = 0; i < DownloadQueue::kParallelAhead; ++i)
    EXPECT_NE(beginNext(), 0U);
  EXPECT_EQ(beginNext(), 0U);
  add(11);
  EXPECT_EQ(beginNext(), 11U);
  EXPECT_EQ(beginNext(), 0U);
  end(*running[0], 0);
  EXPECT_EQ(beginNext(), 5U);
}

TEST_F(DownloadQueueTest, OnlySoManyRunAtATime) {
  for (std::uint64_t node = 1; node <= 20; ++node)
    add(node);
  for (std::size_t i = 0; i < DownloadQueue::kParallel; ++i)
    EXPECT_NE(beginNext(), 0U);
  EXPECT_EQ(beginNext(), 0U);
  end(*running[3], EIO);
  EXPECT_EQ(beginNext(), DownloadQueue::kParallel + 1);
}

TEST_F(DownloadQueueTest, SaysWhenEnoughWaitsAhead) {
  for (std::uint64_t node = 1; node < DownloadQueue::kMostAhead; ++node)
    addAhead(node);
  EXPECT_FALSE(queue.isFullAhead());
  addAhead(DownloadQueue::kMostAhead);
  EXPECT_TRUE(queue.isFullAhead());
  beginNext();
  EXPECT_FALSE(queue.isFullAhead());
}

TEST_F(DownloadQueueTest, AnEndThatComesLateLeavesTheNextDownloadOfTheFileAlone) {
  add(1);
  beginNext();
  const DownloadPointer former = running[0];
  end(*former, EIO);
  add(1);
  EXPECT_EQ(beginNext(), 1U);
  EXPECT_TRUE(queue.remove(*former).empty());
  end(*running[1], 0);
  EXPECT_EQ(told.back(), std::make_pair(std::uint64_t{1}, 0));
}

TEST_F(DownloadQueueTest, SaysWhatIsOnItsWay) {
  add(1);
  const WallSeconds before = secondsNow();
  EXPECT_FALSE(queue.transfers()[0].active);
  EXPECT_LE(queue.transfers()[0].startedAt, before);
  beginNext();
  queue.setSize(NodeId(1), 42);
  queue.setSize(NodeId(2), 43);
  ASSERT_EQ(queue.transfers().size(), 1U);
  EXPECT_TRUE(queue.transfers()[0].active);
  EXPECT_EQ(queue.transfers()[0].size, 42);
}

TEST_F(DownloadQueueTest, StoppedNothingBeginsAndAllAreLeftToBeTold) {
  add(1);
  addAhead(2);
  beginNext();
  const std::vector<DownloadPointer> left = queue.stop();
  EXPECT_EQ(left.size(), 2U);
  EXPECT_FALSE(add(3));
  EXPECT_EQ(beginNext(), 0U);
  for (const DownloadPointer& download : left)
    end(*download, EINTR);
  EXPECT_EQ(told.size(), 2U);
}

}  // namespace
}  // namespace tulo::test
