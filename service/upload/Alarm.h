// Rests until it is time, or until somebody has news.
//
// Threads: rest() on one, the others on any.
#pragma once

#include <chrono>

#include "platform/linux/Mutex.h"

namespace tulo {

class Alarm {
 public:
  // What comes from now on counts as news for the next rest. False once it was stopped.
  bool begin() TULO_EXCLUDES(mutex_);
  // True when there was news since begin(), at once or during the rest; a stop ends it, too.
  bool rest(std::chrono::milliseconds time) TULO_EXCLUDES(mutex_);

  void wake() TULO_EXCLUDES(mutex_);
  void stop() TULO_EXCLUDES(mutex_);
  bool isStopped() TULO_EXCLUDES(mutex_);

 private:
  // A leaf.
  Mutex mutex_;
  Condition changed_;
  bool woken_ TULO_GUARDED_BY(mutex_) = false;
  bool stopped_ TULO_GUARDED_BY(mutex_) = false;
};

}  // namespace tulo
