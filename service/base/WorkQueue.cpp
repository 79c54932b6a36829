#include "service/base/WorkQueue.h"

namespace tulo {

WorkQueue::WorkQueue(unsigned threads) {
  for (unsigned i = 0; i < threads; ++i)
    threads_.emplace_back([this] { run(); });
}

WorkQueue::~WorkQueue() {
  stop();
}

bool WorkQueue::async(std::function<void()> work) {
  std::lock_guard lock(mutex_);
  if (stopping_) return false;
  queue_.push_back(std::move(work));
  changed_.notify_one();
  return true;
}

void WorkQueue::stop() {
  std::vector<std::thread> threads;
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
    threads.swap(threads_);
    changed_.notify_all();
  }
  for (std::thread& thread : threads)
    thread.join();
}

void WorkQueue::run() {
  std::unique_lock lock(mutex_);
  for (;;) {
    changed_.wait(lock, [this] { return stopping_ || !queue_.empty(); });
    if (queue_.empty()) return;
    const std::function<void()> work = std::move(queue_.front());
    queue_.pop_front();
    lock.unlock();
    work();
    lock.lock();
  }
}

}  // namespace tulo
