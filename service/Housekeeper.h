// The thread that does, a little at a time, what nobody waits for: left-overs, limits, and what was
// committed goes to the disk.
//
// Threads: every member may be called on any thread, start() and stop() once each.
// Errors: what a round throws is logged, and the next one is made as usual.
#pragma once

#include <chrono>
#include <functional>
#include <thread>

#include "platform/linux/Mutex.h"

namespace tulo {

class Housekeeper {
 public:
  // `step` is one round; false when there was nothing to do. `synchronize` comes after a round,
  // about once a second.
  Housekeeper(std::function<bool()> step, std::function<void()> synchronize);
  ~Housekeeper();
  Housekeeper(const Housekeeper&) = delete;
  Housekeeper& operator=(const Housekeeper&) = delete;

  void start();
  // Returns once no round runs any more.
  void stop() TULO_EXCLUDES(mutex_);
  // Has the next round begin at once.
  void poke() TULO_EXCLUDES(mutex_);

 private:
  void keep() TULO_EXCLUDES(mutex_);
  // True when there is more to do.
  bool round();
  void rest(MutexLock& lock, bool more) TULO_REQUIRES(mutex_);

  const std::function<bool()> step_;
  const std::function<void()> synchronize_;
  // Touched by the thread only, once it runs.
  std::chrono::steady_clock::time_point lastSynchronized_;

  // Guards the flags; a leaf.
  Mutex mutex_;
  Condition changed_;
  bool stopping_ TULO_GUARDED_BY(mutex_) = false;
  bool poked_ TULO_GUARDED_BY(mutex_) = false;
  std::thread thread_;
};

}  // namespace tulo
