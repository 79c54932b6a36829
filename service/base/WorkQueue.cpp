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
  const MutexLock lock(mutex_);
  if (stopping_) return false;
  queue_.push_back(std::move(work));
  changed_.notifyOne();
  return true;
}

void WorkQueue::stop() {
  std::vector<std::thread> threads;
  {
    const MutexLock lock(mutex_);
    stopping_ = true;
    threads.swap(threads_);
    changed_.notifyAll();
  }
  for (std::thread& thread : threads)
    thread.join();
}

void WorkQueue::run() {
  MutexLock lock(mutex_);
  for (;;) {
    while (!stopping_ && queue_.empty())
      changed_.wait(lock);
    if (queue_.empty()) return;
    const std::function<void()> work = std::move(queue_.front());
    queue_.pop_front();
    lock.unlock();
    work();
    lock.lock();
  }
}

}  // namespace tulo
