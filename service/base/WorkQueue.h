// A few threads that run what they are given, in order of arrival.
//
// Threads: every member may be called on any thread, stop() on any but the queue's own.
#pragma once

#include <deque>
#include <functional>
#include <thread>
#include <vector>

#include "platform/linux/Mutex.h"

namespace tulo {

class WorkQueue {
 public:
  explicit WorkQueue(unsigned threads);
  ~WorkQueue();
  WorkQueue(const WorkQueue&) = delete;
  WorkQueue& operator=(const WorkQueue&) = delete;

  // Work must not throw. False after stop(): the work is dropped.
  bool async(std::function<void()> work);

  // Runs what is queued, then ends the threads.
  void stop();

 private:
  void run();

  // A leaf, never held while work runs.
  Mutex mutex_;
  Condition changed_;
  std::deque<std::function<void()>> queue_ TULO_GUARDED_BY(mutex_);
  bool stopping_ TULO_GUARDED_BY(mutex_) = false;
  std::vector<std::thread> threads_ TULO_GUARDED_BY(mutex_);
};

}  // namespace tulo
