// Global queues of plain threads. As on a Mac, their threads have no autorelease pool.
#include <dispatch/dispatch.h>

#include <Block.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

#include "tests/apple/sdk/StandIns.h"

namespace {

constexpr int maximumThreads = 64;
thread_local qos_class_t currentClass = QOS_CLASS_UNSPECIFIED;

// Never destroyed: its threads live as long as the process.
class Pool {
 public:
  explicit Pool(qos_class_t qosClass) : class_(qosClass) {}

  void submit(dispatch_block_t block) {
    const std::scoped_lock lock(mutex_);
    waiting_.push_back(Block_copy(block));
    ++unfinished_;
    if (idle_ < static_cast<int>(waiting_.size()) && threads_ < maximumThreads) {
      ++threads_;
      std::thread([this] { work(); }).detach();
    }
    changed_.notify_all();
  }

  bool waitUntilIdle() {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, std::chrono::seconds(60), [this] { return unfinished_ == 0; });
  }

 private:
  [[noreturn]] void work() {
    currentClass = class_;
    std::unique_lock lock(mutex_);
    for (;;) {
      ++idle_;
      changed_.wait(lock, [this] { return !waiting_.empty(); });
      --idle_;
      const dispatch_block_t block = waiting_.front();
      waiting_.pop_front();
      lock.unlock();
      block();
      Block_release(block);
      lock.lock();
      --unfinished_;
      changed_.notify_all();
    }
  }

  const qos_class_t class_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<dispatch_block_t> waiting_;
  int unfinished_ = 0;
  int idle_ = 0;
  int threads_ = 0;
};

}  // namespace

@interface TuloSDKQueue : NSObject <OS_dispatch_queue> {
 @public
  Pool *pool;
}
@end

@implementation TuloSDKQueue
@end

namespace {

TuloSDKQueue *makeQueue(qos_class_t qosClass) {
  TuloSDKQueue *queue = [TuloSDKQueue new];
  queue->pool = new Pool(qosClass);
  return queue;
}

TuloSDKQueue *userInitiatedQueue() {
  static TuloSDKQueue *queue = makeQueue(QOS_CLASS_USER_INITIATED);
  return queue;
}

TuloSDKQueue *utilityQueue() {
  static TuloSDKQueue *queue = makeQueue(QOS_CLASS_UTILITY);
  return queue;
}

}  // namespace

dispatch_queue_t dispatch_get_global_queue(intptr_t identifier, uintptr_t flags) {
  // The flags are reserved; the real library gives no queue for others.
  if (flags != 0) return nil;
  if (identifier == QOS_CLASS_USER_INITIATED) return userInitiatedQueue();
  if (identifier == QOS_CLASS_UTILITY) return utilityQueue();
  return nil;
}

void dispatch_async(dispatch_queue_t queue, dispatch_block_t block) {
  static_cast<TuloSDKQueue *>(queue)->pool->submit(block);
}

qos_class_t qos_class_self(void) { return currentClass; }

namespace tulo::sdk {

bool waitForIdleQueues() {
  return userInitiatedQueue()->pool->waitUntilIdle() && utilityQueue()->pool->waitUntilIdle();
}

}  // namespace tulo::sdk
