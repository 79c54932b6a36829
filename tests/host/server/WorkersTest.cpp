#include "host/server/Workers.h"

#include <gtest/gtest.h>

#include <atomic>

#include "host/server/StopSignal.h"
#include "tests/host/server/SocketPair.h"
#include "tests/support/Eventually.h"

namespace tulo::host {
namespace {

using test::eventually;

// Workers that serve nothing to its end before they are let.
class WorkersTest : public testing::Test {
 protected:
  ~WorkersTest() override { go_.raise(); }

  StopSignal go_;
  std::atomic<int> begun_ = 0;
  std::atomic<int> ended_ = 0;
  Workers workers_{2, [this](const Workers::Job&) {
                     ++begun_;
                     go_.wait(test::patience);
                     ++ended_;
                   }};
};

TEST_F(WorkersTest, AsManyAsAllowedServeAtATime) {
  for (int i = 0; i < 5; ++i)
    workers_.add({});
  EXPECT_TRUE(eventually([&] { return begun_ == 2; }));
  EXPECT_EQ(workers_.load(), 5U);
  EXPECT_EQ(begun_, 2);
  go_.raise();
  EXPECT_TRUE(eventually([&] { return ended_ == 5 && workers_.load() == 0; }));
}

TEST_F(WorkersTest, AStopLetsThemEndAndDropsTheRest) {
  test::SocketPair waiting;
  workers_.add({});
  workers_.add({});
  workers_.add({std::move(waiting.ours), "never served"});
  ASSERT_TRUE(eventually([&] { return begun_ == 2; }));
  std::thread owner([this] { workers_.stop(); });
  // Told to stop, they serve no other one, whenever they end.
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  go_.raise();
  owner.join();
  EXPECT_EQ(ended_, begun_);
  char byte = 0;
  EXPECT_EQ(::recv(waiting.theirs.get(), &byte, 1, 0), 0) << "its connection is closed";
  EXPECT_EQ(workers_.load(), 0U);
}

TEST_F(WorkersTest, TheConnectionClosesWhenItsRequestIsServed) {
  test::SocketPair pair;
  go_.raise();
  workers_.add({std::move(pair.ours), "x"});
  char byte = 0;
  EXPECT_EQ(::recv(pair.theirs.get(), &byte, 1, 0), 0);
}

}  // namespace
}  // namespace tulo::host
