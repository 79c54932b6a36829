#include "host/server/Delivery.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "tests/host/server/SocketPair.h"

namespace tulo::host {
namespace {

using std::chrono::milliseconds;
using Manner = Answer::Manner;

class DeliveryTest : public testing::Test {
 protected:
  DeliveryTest() { ::fcntl(pair_.ours.get(), F_SETFL, O_NONBLOCK); }

  void give(const Answer& answer, milliseconds patience = std::chrono::minutes(1)) {
    deliver(pair_.ours.get(), answer, patience, stop_);
    pair_.ours.reset();
  }
  std::string received() {
    std::string all;
    char byte = 0;
    while (::recv(pair_.theirs.get(), &byte, 1, 0) == 1)
      all += byte;
    return all;
  }

  test::SocketPair pair_;
  StopSignal stop_;
  const std::string huge_ = std::string(std::size_t{4} << 20, 'x');
};

TEST_F(DeliveryTest, AReplyArrivesWholeWhateverItsLength) {
  std::thread host([this] { give({Manner::reply, huge_}); });
  EXPECT_TRUE(received() == huge_);
  host.join();
}

TEST_F(DeliveryTest, APeerThatTakesNothingIsGivenUp) {
  give({Manner::reply, huge_}, milliseconds(1));
  EXPECT_LT(received().size(), huge_.size());
}

TEST_F(DeliveryTest, AStopEndsTheWaitingForAPeer) {
  stop_.raise();
  give({Manner::reply, huge_});
  EXPECT_LT(received().size(), huge_.size());
}

TEST_F(DeliveryTest, APeerThatHasGoneIsNoFailure) {
  pair_.theirs.reset();
  give({Manner::reply, "x\n"});
}

TEST_F(DeliveryTest, ToHangUpIsToSayNothing) {
  give({Manner::hangUp, "x\n"});
  EXPECT_EQ(received(), "");
}

TEST_F(DeliveryTest, SilenceLastsUntilThePeerGoesOrTheHostStops) {
  std::thread host([this] { give({Manner::silence, {}}); });
  ::shutdown(pair_.theirs.get(), SHUT_WR);
  host.join();
  EXPECT_EQ(received(), "");

  const test::SocketPair stays;
  std::thread other([&] {
    deliver(stays.ours.get(), {Manner::silence, {}}, std::chrono::minutes(1), stop_);
  });
  stop_.raise();
  other.join();
}

}  // namespace
}  // namespace tulo::host
