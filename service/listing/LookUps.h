// Makes sure that one file is what the host has, without listing its folder if that is large.
//
// Threads: every member may be called on any thread; the answers come on the provider's.
// Lifetime: refuse() and awaitNone() before anything that was handed in goes.
// Errors: what the replica throws.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "platform/linux/Mutex.h"
#include "service/listing/Lister.h"
#include "service/listing/Listing.h"
#include "service/listing/ListingQueue.h"
#include "service/replica/Replica.h"

namespace tulo {

class LookUps {
 public:
  LookUps(Replica& replica, ExtensionPointer extension, Lister& lister);

  // In a large folder that takes one look-up as long as nothing is different; else the folder is
  // listed again.
  void verify(const Node& file, RefreshCompletion completion);

  // How many were made.
  std::uint64_t count() const;

  // Looks up nothing from now on.
  void refuse();
  // Returns when the provider has answered all.
  void awaitNone();

 private:
  // The identifier of the folder, if listing it is much more work than looking one item up.
  std::optional<std::string> largeFolder(NodeId folder);
  bool begin();
  void end();

  Replica& replica_;
  const ExtensionPointer extension_;
  Lister& lister_;

  // A leaf.
  mutable Mutex mutex_;
  Condition changed_;
  std::size_t underWay_ TULO_GUARDED_BY(mutex_) = 0;
  std::uint64_t count_ TULO_GUARDED_BY(mutex_) = 0;
  bool refusing_ TULO_GUARDED_BY(mutex_) = false;
};

}  // namespace tulo
