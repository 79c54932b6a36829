// An owning pointer to an Objective-C object, for sources without automatic reference counting.
//
// Threads: as std::shared_ptr; one instance belongs to one thread at a time, the object's count is
// kept by the runtime.
#pragma once

#import <Foundation/Foundation.h>

#include <utility>

namespace tulo::apple {

// `Pointer` is an object pointer type: NSString*, id<NSCopying>.
template <typename Pointer>
class Retained {
 public:
  Retained() = default;

  // Shares an object that somebody else owns.
  static Retained retaining(Pointer object) { return Retained([object retain]); }

  // Takes over the caller's ownership, as alloc, new, copy and retain give it.
  static Retained adopting(Pointer object) { return Retained(object); }

  Retained(const Retained &other) : object_([other.object_ retain]) {}
  Retained(Retained &&other) noexcept : object_(std::exchange(other.object_, nil)) {}
  Retained &operator=(Retained other) noexcept {
    std::swap(object_, other.object_);
    return *this;
  }
  ~Retained() { [object_ release]; }

  Pointer get() const { return object_; }

 private:
  explicit Retained(Pointer object) : object_(object) {}

  Pointer object_ = nil;
};

}  // namespace tulo::apple
