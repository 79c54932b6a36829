// A door that a test opens when it wants another thread to go on.
#pragma once

#include <condition_variable>
#include <mutex>

#include "tests/support/Eventually.h"

namespace tulo::test {

class Gate {
 public:
  void open() {
    const std::scoped_lock lock(mutex_);
    isOpen_ = true;
    changed_.notify_all();
  }

  bool isOpen() const {
    const std::scoped_lock lock(mutex_);
    return isOpen_;
  }

  // Whether the gate was opened within the bound.
  bool wait() {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, patience, [this] { return isOpen_; });
  }

 private:
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  bool isOpen_ = false;
};

}  // namespace tulo::test
