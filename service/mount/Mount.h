// The mount: the kernel's requests on one side, the replica and its helpers on the other.
//
// Whatever is known is answered on the thread that took the request (RequestLoop); what has to wait
// is answered from the completion, so that a slow download never keeps a thread. The kernel's
// caches are given long time-outs: Notifier tells the kernel what is no longer true.
//
// Threads: run() serves on several threads until stop(), which any thread may call.
#pragma once

#include <memory>
#include <vector>

#include "service/kernel/Notifier.h"
#include "service/mount/MountOptions.h"
#include "service/mount/MountParts.h"
#include "service/mount/MountPoint.h"
#include "service/mount/MountUsers.h"

namespace tulo {

class Mount final {
 public:
  // Mounts. Throws MountError (MountPoint.h), which says what is wrong with the mount point.
  Mount(const MountOptions& options, const MountParts& parts);
  ~Mount();

  // Serves until unmounted or stopped.
  void run();
  // Makes run() return; any thread but run()'s own.
  void stop();
  // Cuts the connection, so that nothing in the kernel waits for an answer any more. After run().
  void abort();

  const MountPoint& point() const;
  // Has the kernel hand over what programs wrote through mappings. False when not all of it was
  // here within the time. While run() serves.
  bool writeBack(milliseconds patience) const;
  // Whether paths lead into it still.
  bool isInItsPlace() const;
  // Until every request that has come by now was handled; false when it takes longer.
  bool awaitIdle(milliseconds patience) const;
  // The programs that use it, also after it was taken from its place.
  std::vector<MountUser> users() const;

  // What the kernel remembers of the mount.
  InvalidationSink& caches();

 private:
  struct Session;
  std::unique_ptr<Session> session_;
};

}  // namespace tulo
