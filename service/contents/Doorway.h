// Counts who is at work with something, so that it can be left alone for good.
//
// Threads: every member may be called on any thread; close() by nobody who is inside.
#pragma once

#include <cstddef>

#include "platform/linux/Mutex.h"

namespace tulo {

class Doorway {
 public:
  // Inside until the end of the scope, unless the door was closed before.
  class Visit {
   public:
    explicit Visit(Doorway& door) : door_(door), inside_(door.enter()) {}
    ~Visit() {
      if (inside_) door_.leave();
    }
    Visit(const Visit&) = delete;
    Visit& operator=(const Visit&) = delete;

    explicit operator bool() const { return inside_; }

   private:
    Doorway& door_;
    const bool inside_;
  };

  // Nobody comes in any more; returns once all have left.
  void close() TULO_EXCLUDES(mutex_);

 private:
  bool enter() TULO_EXCLUDES(mutex_);
  void leave() TULO_EXCLUDES(mutex_);

  // A leaf.
  Mutex mutex_;
  Condition changed_;
  bool closed_ TULO_GUARDED_BY(mutex_) = false;
  std::size_t inside_ TULO_GUARDED_BY(mutex_) = 0;
};

}  // namespace tulo
