#include "host/server/Workers.h"

#include <utility>

namespace tulo::host {

Workers::Workers(std::size_t most, std::function<void(Job)> serve)
    : most_(most), serve_(std::move(serve)) {}

Workers::~Workers() {
  stop();
}

void Workers::add(Job job) {
  const MutexLock lock(mutex_);
  jobs_.push_back(std::move(job));
  ++load_;
  if (idle_ < jobs_.size() && threads_.size() < most_) {
    threads_.emplace_back([this] { work(); });
  }
  changed_.notifyOne();
}

std::size_t Workers::load() {
  const MutexLock lock(mutex_);
  return load_;
}

void Workers::stop() {
  std::vector<std::thread> threads;
  {
    const MutexLock lock(mutex_);
    stopping_ = true;
    threads.swap(threads_);
  }
  changed_.notifyAll();
  for (std::thread& thread : threads)
    thread.join();
  const MutexLock lock(mutex_);
  load_ -= jobs_.size();
  jobs_.clear();
}

void Workers::work() {
  MutexLock lock(mutex_);
  while (true) {
    ++idle_;
    while (!stopping_ && jobs_.empty())
      changed_.wait(lock);
    --idle_;
    if (stopping_) return;
    Job job = std::move(jobs_.front());
    jobs_.pop_front();
    lock.unlock();
    serve_(std::move(job));
    lock.lock();
    --load_;
  }
}

}  // namespace tulo::host
