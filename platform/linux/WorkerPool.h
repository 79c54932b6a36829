// An elastic pool of threads for work that may block for minutes.
//
// Threads: async and the counts may be called on any thread, async also from a work item.
// Lifetime: the destructor waits until everything submitted has run and every worker has ended; it
// must not be called from a work item.
#pragma once

#include <chrono>
#include <cstddef>
#include <deque>
#include <functional>
#include <string>
#include <thread>

#include "platform/linux/Mutex.h"

namespace tulo::platform {

class WorkerPool {
 public:
  struct Options {
    // Name of the threads as debuggers and top show it; at most 15 bytes.
    std::string name;
    std::size_t maximumWorkers = 64;
    // How long a worker waits for more work before it ends.
    std::chrono::milliseconds idleTime{5000};
    // Runs first on each worker, as to lower its priority.
    std::function<void()> prepareWorker;
  };

  // Throws std::system_error when the system has no thread to give.
  explicit WorkerPool(Options options);
  ~WorkerPool();
  WorkerPool(const WorkerPool&) = delete;
  WorkerPool& operator=(const WorkerPool&) = delete;

  // Submits the work and returns at once. An exception that leaves the work ends the process.
  void async(std::function<void()> work) TULO_EXCLUDES(mutex_);

  // Workers that exist, and those of them that wait for work.
  std::size_t workerCount() const TULO_EXCLUDES(mutex_);
  std::size_t idleCount() const TULO_EXCLUDES(mutex_);

 private:
  void startWorkers() TULO_EXCLUDES(mutex_);
  // Lets go of the lock in between, as runNext does.
  void startWorker(MutexLock& lock) TULO_REQUIRES(mutex_);
  void workUntilIdle() TULO_EXCLUDES(mutex_);
  bool waitForWork(MutexLock& lock) TULO_REQUIRES(mutex_);
  void runNext() TULO_REQUIRES(mutex_);
  bool needsWorker() const TULO_REQUIRES(mutex_);

  const Options options_;
  mutable Mutex mutex_;
  Condition workArrived_;
  Condition workerWanted_;
  Condition workerEnded_;
  std::deque<std::function<void()>> queue_ TULO_GUARDED_BY(mutex_);
  std::size_t workers_ TULO_GUARDED_BY(mutex_) = 0;
  std::size_t idle_ TULO_GUARDED_BY(mutex_) = 0;
  std::size_t starting_ TULO_GUARDED_BY(mutex_) = 0;
  bool stopping_ TULO_GUARDED_BY(mutex_) = false;
  // Starts the workers. A new thread inherits the priority of the one that starts it, and async may
  // be called on a thread whose priority was lowered.
  std::thread starter_;
};

}  // namespace tulo::platform
