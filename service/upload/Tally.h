// What became of the requests, in numbers, for the status.
//
// Threads: every member may be called on any thread.
#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include "platform/linux/Mutex.h"

namespace tulo {

class Tally {
 public:
  struct Counts {
    std::uint64_t sent = 0;
    std::uint64_t failures = 0;
    std::uint64_t conflicts = 0;
    std::string lastError;
  };

  void sent() TULO_EXCLUDES(mutex_) {
    const MutexLock lock(mutex_);
    ++counts_.sent;
  }
  void failed(std::string words) TULO_EXCLUDES(mutex_) {
    const MutexLock lock(mutex_);
    ++counts_.failures;
    counts_.lastError = std::move(words);
  }
  // Both sides changed one item.
  void conflict() TULO_EXCLUDES(mutex_) {
    const MutexLock lock(mutex_);
    ++counts_.conflicts;
  }
  Counts counts() TULO_EXCLUDES(mutex_) {
    const MutexLock lock(mutex_);
    return counts_;
  }

 private:
  // A leaf.
  Mutex mutex_;
  Counts counts_ TULO_GUARDED_BY(mutex_);
};

}  // namespace tulo
