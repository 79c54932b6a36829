// Tells the kernel what to forget. Private to the mount.
//
// Threads: as InvalidationSink says. Lifetime: the session outlives it.
#pragma once

#include "service/kernel/Notifier.h"
#include "service/mount/Fuse.h"

namespace tulo {

class KernelCaches final : public InvalidationSink {
 public:
  explicit KernelCaches(fuse_session* session) : session_(session) {}

  void deliver(const Invalidation& invalidation) override;

 private:
  void dropName(const Invalidation& invalidation);
  void dropDeleted(const Invalidation& invalidation);

  fuse_session* const session_;
};

}  // namespace tulo
