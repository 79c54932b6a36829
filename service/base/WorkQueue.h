// A few threads that run what they are given, in order of arrival.
//
// Threads: every member may be called on any thread, stop() on any but the queue's own.
#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

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

  // Guards the fields below; a leaf, never held while work runs.
  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<std::function<void()>> queue_;
  bool stopping_ = false;
  std::vector<std::thread> threads_;
};

}  // namespace tulo
