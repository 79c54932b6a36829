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
    const Lock lock(mutex_);
    stopping_ = true;
    workArrived_.notify_all();
    workerWanted_.notify_all();
  }
  starter_.join();
  Lock lock(mutex_);
  workerEnded_.wait(lock, [this] { return workers_ == 0; });
}

void WorkerPool::async(std::function<void()> work) {
  const Lock lock(mutex_);
  queue_.push_back(std::move(work));
  if (needsWorker()) {
    workerWanted_.notify_one();
  } else {
    workArrived_.notify_one();
  }
}

std::size_t WorkerPool::workerCount() const {
  const Lock lock(mutex_);
  return workers_;
}

std::size_t WorkerPool::idleCount() const {
  const Lock lock(mutex_);
  return idle_;
}

// A worker that was woken or started but has not yet taken its work still counts as available.
bool WorkerPool::needsWorker() const {
  return queue_.size() > idle_ + starting_ && workers_ < options_.maximumWorkers;
}

void WorkerPool::startWorkers() {
  nameThread(options_.name);
  Lock lock(mutex_);
  while (true) {
    workerWanted_.wait(lock, [this] { return needsWorker() || (stopping_ && queue_.empty()); });
    if (!needsWorker()) return;
    startWorker(lock);
  }
}

void WorkerPool::startWorker(Lock& lock) {
  ++workers_;
  ++starting_;
  lock.unlock();
  bool started = true;
  try {
    std::thread([this] { workUntilIdle(); }).detach();
  } catch (const std::system_error&) {
    started = false;
  }
  lock.lock();
  if (started) return;
  --workers_;
  --starting_;
  // With no thread to be had and no worker that will come free, the starter itself must work.
  if (workers_ == 0 && !queue_.empty()) {
    runNext(lock);
  } else {
    workerWanted_.wait_for(lock, retryDelay);
  }
}

void WorkerPool::workUntilIdle() {
  nameThread(options_.name);
  if (options_.prepareWorker) options_.prepareWorker();
  Lock lock(mutex_);
  --starting_;
  while (waitForWork(lock))
    runNext(lock);
  --workers_;
  // Both under the lock: the pool may be gone as soon as it is released.
  if (stopping_) workerWanted_.notify_all();
  workerEnded_.notify_all();
}

bool WorkerPool::waitForWork(Lock& lock) {
  ++idle_;
  workArrived_.wait_for(lock, options_.idleTime, [this] { return !queue_.empty() || stopping_; });
  --idle_;
  return !queue_.empty();
}

void WorkerPool::runNext(Lock& lock) {
  std::function<void()> work = std::move(queue_.front());
  queue_.pop_front();
  lock.unlock();
  runAndRelease(std::move(work));
  lock.lock();
}

}  // namespace tulo::platform
