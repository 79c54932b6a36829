#include "platform/linux/WorkerPool.h"

#include <pthread.h>

#include <system_error>
#include <utility>

namespace tulo::platform {

namespace {

// How long to wait before asking again for a thread that the system refused.
constexpr std::chrono::milliseconds retryDelay{100};

void nameThread(const std::string& name) {
  pthread_setname_np(pthread_self(), name.substr(0, 15).c_str());
}

// Destroys the work before it returns, so that nothing it holds outlives its run.
void runAndRelease(std::function<void()> work) noexcept {
  work();
}

}  // namespace

WorkerPool::WorkerPool(Options options)
    : options_(std::move(options)), starter_([this] { startWorkers(); }) {}

WorkerPool::~WorkerPool() {
  {
    const MutexLock lock(mutex_);
    stopping_ = true;
    workArrived_.notifyAll();
    workerWanted_.notifyAll();
  }
  starter_.join();
  MutexLock lock(mutex_);
  while (workers_ != 0)
    workerEnded_.wait(lock);
}

void WorkerPool::async(std::function<void()> work) {
  const MutexLock lock(mutex_);
  queue_.push_back(std::move(work));
  if (needsWorker()) {
    workerWanted_.notifyOne();
  } else {
    workArrived_.notifyOne();
  }
}

std::size_t WorkerPool::workerCount() const {
  const MutexLock lock(mutex_);
  return workers_;
}

std::size_t WorkerPool::idleCount() const {
  const MutexLock lock(mutex_);
  return idle_;
}

// A worker that was woken or started but has not yet taken its work still counts as available.
bool WorkerPool::needsWorker() const {
  return queue_.size() > idle_ + starting_ && workers_ < options_.maximumWorkers;
}

void WorkerPool::startWorkers() {
  nameThread(options_.name);
  MutexLock lock(mutex_);
  while (true) {
    while (!needsWorker() && !(stopping_ && queue_.empty()))
      workerWanted_.wait(lock);
    if (!needsWorker()) return;
    startWorker(lock);
  }
}

void WorkerPool::startWorker(MutexLock& lock) {
  ++workers_;
  ++starting_;
  mutex_.unlock();
  bool started = true;
  try {
    std::thread([this] { workUntilIdle(); }).detach();
  } catch (const std::system_error&) {
    started = false;
  }
  mutex_.lock();
  if (started) return;
  --workers_;
  --starting_;
  // With no thread to be had and no worker that will come free, the starter itself must work.
  if (workers_ == 0 && !queue_.empty()) {
    runNext();
  } else {
    workerWanted_.waitFor(lock, retryDelay);
  }
}

void WorkerPool::workUntilIdle() {
  nameThread(options_.name);
  if (options_.prepareWorker) options_.prepareWorker();
  MutexLock lock(mutex_);
  --starting_;
  while (waitForWork(lock))
    runNext();
  --workers_;
  // Both under the lock: the pool may be gone as soon as it is released.
  if (stopping_) workerWanted_.notifyAll();
  workerEnded_.notifyAll();
}

bool WorkerPool::waitForWork(MutexLock& lock) {
  ++idle_;
  const auto end = std::chrono::steady_clock::now() + options_.idleTime;
  while (queue_.empty() && !stopping_ && workArrived_.waitUntil(lock, end)) {
  }
  --idle_;
  return !queue_.empty();
}

void WorkerPool::runNext() {
  std::function<void()> work = std::move(queue_.front());
  queue_.pop_front();
  mutex_.unlock();
  runAndRelease(std::move(work));
  mutex_.lock();
}

}  // namespace tulo::platform
