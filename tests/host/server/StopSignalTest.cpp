#include "host/server/StopSignal.h"

#include <gtest/gtest.h>

#include <thread>

namespace tulo::host {
namespace {

TEST(StopSignalTest, WakesWhoeverWaits) {
  StopSignal signal;
  EXPECT_FALSE(signal.isRaised());
  bool raised = false;
  std::thread waiting([&] { raised = signal.wait(std::chrono::hours(1)); });
  signal.raise();
  waiting.join();
  EXPECT_TRUE(raised);
  EXPECT_TRUE(signal.isRaised());
  EXPECT_TRUE(signal.wait(std::chrono::hours(1)));
}

TEST(StopSignalTest, OtherwiseTheTimePasses) {
  StopSignal signal;
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_FALSE(signal.wait(std::chrono::milliseconds(20)));
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(20));
}

}  // namespace
}  // namespace tulo::host
