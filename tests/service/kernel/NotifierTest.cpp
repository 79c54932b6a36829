#include "service/kernel/Notifier.h"

#include <gtest/gtest.h>

#include "tests/support/Gate.h"

namespace tulo::test {
namespace {

class HoldingSink final : public InvalidationSink {
 public:
  void deliver(const Invalidation& invalidation) override {
    begun.open();
    ASSERT_TRUE(go.wait());
    const std::scoped_lock lock(mutex);
    delivered.push_back(invalidation);
  }
  Gate begun;
  Gate go;
  std::mutex mutex;
  Invalidations delivered;
};

TEST(Notifier, AFunctionWaitsForEverythingQueuedBeforeIt) {
  HoldingSink sink;
  Notifier notifier;
  notifier.start(sink);
  notifier.queue({dataChanged(NodeId(20)), entryChanged(NodeId(1), "a")});
  ASSERT_TRUE(sink.begun.wait());
  Gate called;
  std::size_t seen = 0;
  notifier.afterDelivery([&] {
    const std::scoped_lock lock(sink.mutex);
    seen = sink.delivered.size();
    called.open();
  });
  EXPECT_FALSE(called.isOpen());
  sink.go.open();
  ASSERT_TRUE(called.wait());
  EXPECT_EQ(seen, 2U);
}

TEST(Notifier, AFunctionIsCalledAtOnceWhenNothingIsQueued) {
  Notifier notifier;
  bool called = false;
  notifier.afterDelivery([&] { called = true; });
  EXPECT_TRUE(called);
}

TEST(Notifier, StoppingCallsTheFunctionsThatWait) {
  HoldingSink sink;
  Notifier notifier;
  notifier.start(sink);
  notifier.queue({dataChanged(NodeId(20))});
  ASSERT_TRUE(sink.begun.wait());
  Gate called;
  notifier.afterDelivery([&] { called.open(); });
  std::thread stopper([&] { notifier.stop(); });
  sink.go.open();
  stopper.join();
  EXPECT_TRUE(called.isOpen());
  bool late = false;
  notifier.afterDelivery([&] { late = true; });
  EXPECT_TRUE(late);
}

}  // namespace
}  // namespace tulo::test
