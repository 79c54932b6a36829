#include "service/listing/ListingQueue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

namespace tulo::test {
namespace {

using Place = ListingQueue::Place;

constexpr NodeId kFolder{20};

class ListingQueueTest : public ::testing::Test {
 protected:
  // Joins under a number, which the completion notes when it is called.
  Place join(std::uint64_t generation, int number) {
    RefreshCompletion completion = [this, number](int) { called.push_back(number); };
    const Place place = queue.join(kFolder, generation, completion);
    EXPECT_EQ(completion == nullptr, place != Place::refused);
    return place;
  }

  bool finish() {
    const auto [waiters, again] = queue.finished(kFolder);
    for (const RefreshCompletion& waiter : waiters)
      waiter(0);
    return again;
  }

  ListingQueue queue;
  std::vector<int> called;
};

TEST_F(ListingQueueTest, WhoeverComesForTheSameGenerationSharesTheListing) {
  EXPECT_EQ(join(1, 1), Place::first);
  EXPECT_EQ(join(1, 2), Place::waiting);
  EXPECT_FALSE(finish());
  EXPECT_EQ(called, (std::vector<int>{1, 2}));
  EXPECT_EQ(join(1, 3), Place::first);
}

TEST_F(ListingQueueTest, WhoeverComesForALaterGenerationWaitsForTheNextListing) {
  join(1, 1);
  EXPECT_EQ(join(2, 2), Place::waiting);
  EXPECT_TRUE(finish());
  EXPECT_EQ(called, std::vector<int>{1});
  queue.began(kFolder, 2);
  EXPECT_EQ(join(2, 3), Place::waiting);
  EXPECT_FALSE(finish());
  EXPECT_EQ(called, (std::vector<int>{1, 2, 3}));
}

TEST_F(ListingQueueTest, AListingCountsForTheGenerationInWhichItReallyBegan) {
  join(1, 1);
  queue.began(kFolder, 2);
  join(2, 2);
  EXPECT_FALSE(finish());
  EXPECT_EQ(called, (std::vector<int>{1, 2}));
}

TEST_F(ListingQueueTest, EachFolderHasAListingOfItsOwn) {
  join(1, 1);
  RefreshCompletion completion = [](int) {};
  EXPECT_EQ(queue.join(NodeId(21), 1, completion), Place::first);
}

TEST_F(ListingQueueTest, WhatIsNotUnderWayEndsForNobody) {
  EXPECT_FALSE(finish());
  EXPECT_TRUE(called.empty());
}

TEST_F(ListingQueueTest, OnceItRefusesNothingBeginsAndWhoWaitsForTheNextIsAnsweredWithThisOne) {
  join(1, 1);
  join(2, 2);
  queue.refuse();
  EXPECT_EQ(join(1, 3), Place::refused);
  EXPECT_FALSE(finish());
  EXPECT_EQ(called, (std::vector<int>{1, 2}));
}

TEST_F(ListingQueueTest, WaitingForTheEndTakesAsLongAsAListingIsUnderWay) {
  join(1, 1);
  std::atomic<bool> ended = false;
  std::thread waiting([&] {
    queue.awaitNone();
    ended = true;
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_FALSE(ended);
  finish();
  waiting.join();
  EXPECT_TRUE(ended);
}

}  // namespace
}  // namespace tulo::test
