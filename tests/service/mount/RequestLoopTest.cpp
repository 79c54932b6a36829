#include "service/mount/RequestLoop.h"

#include <gtest/gtest.h>

#include <deque>
#include <functional>
#include <map>
#include <set>
#include <thread>
#include <vector>

namespace tulo::test {
namespace {

using namespace std::chrono_literals;

// So long that whatever happens in time happens for another reason.
constexpr auto kNever = std::chrono::hours(1);

// A request is what handling it does.
class Requests final : public RequestSource {
 public:
  using Request = std::function<void()>;

  void add(Request request) {
    std::lock_guard lock(mutex_);
    waiting_.push_back(std::move(request));
    changed_.notify_all();
  }

  void finish() {
    std::lock_guard lock(mutex_);
    finished_ = true;
    changed_.notify_all();
  }

  Taken take(unsigned slot) override {
    std::lock_guard lock(mutex_);
    EXPECT_FALSE(taking_) << "two threads take requests";
    if (waiting_.empty()) return finished_ ? Taken::end : Taken::nothing;
    taken_[slot] = std::move(waiting_.front());
    waiting_.pop_front();
    return Taken::request;
  }

  void await() override {
    std::unique_lock lock(mutex_);
    EXPECT_FALSE(std::exchange(taking_, true)) << "two threads wait for requests";
    ++rests_;
    changed_.notify_all();
    changed_.wait(lock, [this] { return !waiting_.empty() || finished_ || woken_; });
    taking_ = false;
  }

  void wake() override {
    std::lock_guard lock(mutex_);
    woken_ = true;
    changed_.notify_all();
  }

  void handle(unsigned slot) override {
    Request request;
    {
      std::lock_guard lock(mutex_);
      request = std::move(taken_[slot]);
    }
    request();
    std::lock_guard lock(mutex_);
    ++handled_;
    changed_.notify_all();
  }

  void awaitHandled(unsigned count) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return handled_ >= count; });
  }

  // Until the loop has rested so often.
  void awaitRest(unsigned count) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return rests_ >= count; });
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<Request> waiting_;
  std::map<unsigned, Request> taken_;
  unsigned handled_ = 0;
  unsigned rests_ = 0;
  bool taking_ = false;
  bool finished_ = false;
  bool woken_ = false;
};

class Gate {
 public:
  void open() {
    std::lock_guard lock(mutex_);
    open_ = true;
    changed_.notify_all();
  }
  void pass() {
    std::unique_lock lock(mutex_);
    ++waiting_;
    changed_.notify_all();
    changed_.wait(lock, [this] { return open_; });
  }
  void awaitWaiting(unsigned count) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return waiting_ >= count; });
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  unsigned waiting_ = 0;
  bool open_ = false;
};

class RequestLoopTest : public testing::Test {
 protected:
  ~RequestLoopTest() override { stop(); }

  void start(RequestLoop::Options options) {
    loop_.emplace(requests, options);
    runner_ = std::thread([this] { loop_->run(); });
  }

  void stop() {
    if (!runner_.joinable()) return;
    loop_->stop();
    runner_.join();
  }

  RequestLoop& loop() { return *loop_; }
  void join() { runner_.join(); }

  Requests requests;

 private:
  std::optional<RequestLoop> loop_;
  std::thread runner_;
};

TEST_F(RequestLoopTest, OneAfterTheOtherIsHandledInOrderOnOneThread) {
  start({.patience = kNever, .alert = 0us});
  std::vector<int> order;
  std::set<std::thread::id> threads;
  for (int i = 0; i < 100; ++i) {
    requests.add([&, i] {
      order.push_back(i);
      threads.insert(std::this_thread::get_id());
    });
    requests.awaitHandled(static_cast<unsigned>(i) + 1);
  }
  stop();
  ASSERT_EQ(order.size(), 100U);
  for (int i = 0; i < 100; ++i)
    EXPECT_EQ(order[static_cast<std::size_t>(i)], i);
  EXPECT_EQ(threads.size(), 1U);
}

TEST_F(RequestLoopTest, ASlowRequestHoldsUpNoOther) {
  start({.patience = 100us, .alert = 0us});
  Gate gate;
  requests.add([&] { gate.pass(); });
  gate.awaitWaiting(1);
  requests.add([] {});
  requests.awaitHandled(1);
  gate.open();
  requests.awaitHandled(2);
}

// The deputy sleeps soon; whether it does when the slow request comes is for the scheduler to say,
// hence the repetition.
TEST_F(RequestLoopTest, ASlowRequestAfterARestHoldsUpNoOther) {
  start({.patience = 1us, .quietRounds = 1, .alert = 0us});
  for (unsigned i = 1; i <= 100; ++i) {
    requests.awaitRest(i);
    for (int j = 0; j < 100; ++j)
      std::this_thread::yield();
    Gate gate;
    requests.add([&] { gate.pass(); });
    gate.awaitWaiting(1);
    requests.add([] {});
    requests.awaitHandled(2 * i - 1);
    gate.open();
    requests.awaitHandled(2 * i);
  }
}

TEST_F(RequestLoopTest, WhoeverIsAboutToWaitPassesTheTurnOn) {
  start({.patience = kNever, .alert = 0us});
  Gate gate;
  requests.add([&] {
    RequestLoop::passTurn();
    gate.pass();
  });
  gate.awaitWaiting(1);
  requests.add([] {});
  requests.awaitHandled(1);
  gate.open();
  requests.awaitHandled(2);
  requests.add([] {});
  requests.awaitHandled(3);
}

TEST_F(RequestLoopTest, PassingTheTurnTwiceOrOutsideOfAHandlerDoesNothing) {
  RequestLoop::passTurn();
  start({.patience = kNever, .alert = 0us});
  for (unsigned i = 1; i <= 50; ++i) {
    requests.add([] {
      RequestLoop::passTurn();
      RequestLoop::passTurn();
    });
    requests.awaitHandled(i);
  }
}

TEST_F(RequestLoopTest, WhenAllThreadsAreBusyTheNextRequestWaitsForOne) {
  start({.threads = 3, .patience = 100us, .alert = 0us});
  Gate gate;
  for (unsigned i = 1; i <= 3; ++i) {
    requests.add([&] { gate.pass(); });
    gate.awaitWaiting(i);
  }
  requests.add([] {});
  gate.open();
  requests.awaitHandled(4);
}

TEST_F(RequestLoopTest, ASingleThreadDoes) {
  start({.threads = 1, .patience = 10us, .alert = 10us});
  for (unsigned i = 1; i <= 20; ++i)
    requests.add([] { RequestLoop::passTurn(); });
  requests.awaitHandled(20);
}

TEST_F(RequestLoopTest, StoppingWaitsForWhatIsBeingHandled) {
  start({.patience = 100us, .alert = 0us});
  Gate gate;
  std::atomic<bool> done = false;
  requests.add([&] {
    gate.pass();
    done = true;
  });
  gate.awaitWaiting(1);
  loop().stop();
  EXPECT_FALSE(done);
  gate.open();
  join();
  EXPECT_TRUE(done);
}

TEST_F(RequestLoopTest, StoppingBeforeItRunsEndsItAtOnce) {
  RequestLoop loop(requests, {});
  loop.stop();
  loop.run();
}

TEST_F(RequestLoopTest, TheEndOfTheSourceEndsIt) {
  start({.patience = kNever, .alert = 50us});
  requests.add([] {});
  requests.awaitHandled(1);
  requests.finish();
  join();
}

TEST_F(RequestLoopTest, ManyAtOnceAreEachHandledOnce) {
  start({.threads = 4, .patience = 20us, .alert = 20us});
  constexpr unsigned kSenders = 4;
  constexpr unsigned kEach = 2000;
  std::vector<std::atomic<int>> counts(kSenders * kEach);
  std::vector<std::thread> senders;
  for (unsigned sender = 0; sender < kSenders; ++sender) {
    senders.emplace_back([&, sender] {
      for (unsigned i = 0; i < kEach; ++i) {
        requests.add([&, number = sender * kEach + i] {
          if (number % 7 == 0) RequestLoop::passTurn();
          if (number % 50 == 0) std::this_thread::sleep_for(30us);
          ++counts[number];
        });
        if (i % 100 == 0) std::this_thread::yield();
      }
    });
  }
  for (std::thread& sender : senders)
    sender.join();
  requests.awaitHandled(kSenders * kEach);
  stop();
  for (const std::atomic<int>& count : counts)
    EXPECT_EQ(count, 1);
}

}  // namespace
}  // namespace tulo::test
