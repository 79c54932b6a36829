// The provider's own word for how far its changes go, as the status shows it.
//
// Every listing is compared anyway, so nothing depends on the answer.
//
// Threads: every member may be called on any thread; the answer comes before ask() returns.
#pragma once

#include <string>

#include "platform/linux/Mutex.h"
#include "service/listing/Listing.h"

namespace tulo {

class Anchor {
 public:
  explicit Anchor(ExtensionPointer extension);

  // Asks the provider what changed since the last answer, and how far that goes.
  void ask();
  // The last answer; empty when there was none.
  std::string last() const;

 private:
  const ExtensionPointer extension_;

  // A leaf.
  mutable Mutex mutex_;
  std::string last_ TULO_GUARDED_BY(mutex_);
};

}  // namespace tulo
