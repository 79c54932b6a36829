#include "service/upload/Alarm.h"

namespace tulo {

bool Alarm::begin() {
  const MutexLock lock(mutex_);
  woken_ = false;
  return !stopped_;
}

bool Alarm::rest(std::chrono::milliseconds time) {
  const auto end = std::chrono::steady_clock::now() + time;
  MutexLock lock(mutex_);
  while (!woken_ && !stopped_ && changed_.waitUntil(lock, end)) {
  }
  return woken_;
}

void Alarm::wake() {
  const MutexLock lock(mutex_);
  woken_ = true;
  changed_.notifyAll();
}

void Alarm::stop() {
  const MutexLock lock(mutex_);
  stopped_ = true;
  changed_.notifyAll();
}

bool Alarm::isStopped() {
  const MutexLock lock(mutex_);
  return stopped_;
}

}  // namespace tulo
