#include "service/contents/Doorway.h"

namespace tulo {

bool Doorway::enter() {
  const MutexLock lock(mutex_);
  if (!closed_) ++inside_;
  return !closed_;
}

void Doorway::leave() {
  const MutexLock lock(mutex_);
  --inside_;
  changed_.notifyAll();
}

void Doorway::close() {
  MutexLock lock(mutex_);
  closed_ = true;
  while (inside_ > 0)
    changed_.wait(lock);
}

}  // namespace tulo
