// A bounded number of threads that serve requests, each made when all others are busy.
//
// Threads: every member may be called on any thread; stop() by the owner.
#pragma once

#include <cstddef>
#include <deque>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "platform/linux/FileDescriptor.h"
#include "platform/linux/Mutex.h"

namespace tulo::host {

class Workers {
 public:
  // A whole request, and the connection that waits for its reply.
  struct Job {
    FileDescriptor connection;
    std::string request;
  };

  // `serve` is called on the threads, several at a time; it must not throw.
  Workers(std::size_t most, std::function<void(Job)> serve);
  ~Workers();
  Workers(const Workers&) = delete;
  Workers& operator=(const Workers&) = delete;

  void add(Job job) TULO_EXCLUDES(mutex_);
  // The jobs that wait or are being served.
  std::size_t load() TULO_EXCLUDES(mutex_);
  // Lets what is being served come to its end, and drops the rest.
  void stop() TULO_EXCLUDES(mutex_);

 private:
  void work() TULO_EXCLUDES(mutex_);

  const std::size_t most_;
  const std::function<void(Job)> serve_;
  Mutex mutex_;
  Condition changed_;
  std::deque<Job> jobs_ TULO_GUARDED_BY(mutex_);
  std::vector<std::thread> threads_ TULO_GUARDED_BY(mutex_);
  std::size_t idle_ TULO_GUARDED_BY(mutex_) = 0;
  std::size_t load_ TULO_GUARDED_BY(mutex_) = 0;
  bool stopping_ TULO_GUARDED_BY(mutex_) = false;
};

}  // namespace tulo::host
