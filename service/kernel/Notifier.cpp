#include "service/kernel/Notifier.h"

namespace tulo {

Notifier::~Notifier() {
  stop();
}

void Notifier::start(InvalidationSink& sink) {
  const MutexLock lock(mutex_);
  running_ = true;
  stopping_ = false;
  thread_ = std::thread([this, &sink] { run(sink); });
}

void Notifier::perform(Work& work, InvalidationSink* sink) {
  if (work.function) {
    work.function();
  } else if (sink) {
    sink->deliver(work.invalidation);
  }
}

void Notifier::stop() {
  std::deque<Work> rest;
  std::thread thread;
  {
    const MutexLock lock(mutex_);
    stopping_ = true;
    running_ = false;
    rest.swap(queue_);
    thread.swap(thread_);
    changed_.notifyAll();
  }
  if (thread.joinable()) thread.join();
  for (Work& work : rest)
    perform(work, nullptr);
}

void Notifier::queue(Invalidations invalidations) {
  if (invalidations.empty()) return;
  const MutexLock lock(mutex_);
  if (stopping_) return;
  for (Invalidation& invalidation : invalidations)
    queue_.push_back({std::move(invalidation), nullptr});
  changed_.notifyOne();
}

void Notifier::afterDelivery(std::function<void()> function) {
  {
    const MutexLock lock(mutex_);
    if (running_ && (!queue_.empty() || delivering_)) {
      queue_.push_back({{}, std::move(function)});
      return;
    }
  }
  function();
}

void Notifier::run(InvalidationSink& sink) {
  MutexLock lock(mutex_);
  for (;;) {
    while (!stopping_ && queue_.empty())
      changed_.wait(lock);
    if (stopping_) return;
    Work work = std::move(queue_.front());
    queue_.pop_front();
    delivering_ = true;
    lock.unlock();
    perform(work, &sink);
    lock.lock();
    delivering_ = false;
  }
}

void Notifier::deliverNow(InvalidationSink& sink) {
  std::deque<Work> all;
  {
    const MutexLock lock(mutex_);
    all.swap(queue_);
  }
  for (Work& work : all)
    perform(work, &sink);
}

}  // namespace tulo
