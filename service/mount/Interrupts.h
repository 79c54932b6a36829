// Lets a program that waits give up. Private to the mount.
//
// An interrupt arrives on a thread that must not answer the request that it is about, and perhaps
// when that request is gone: so nothing of the request is touched then, and a thread of its own
// cancels by the ticket.
//
// Threads: every member may be called on any thread.
#pragma once

#include <cstdint>

#include "service/base/WorkQueue.h"
#include "service/mount/Fuse.h"
#include "service/mount/MountParts.h"

namespace tulo {

class Interrupts {
 public:
  explicit Interrupts(const MountParts& parts);

  // The request waits for a file's contents, or for the host's word.
  void armOpen(fuse_req_t request, Contents::Ticket ticket);
  void armVerdict(fuse_req_t request, Verdicts::Ticket ticket);

  // Interrupts are ignored afterwards; requests are no longer read.
  void stop();

 private:
  static void openInterrupted(fuse_req_t request, void* ticket);
  static void verdictInterrupted(fuse_req_t request, void* ticket);

  Contents& contents_;
  Uploader* const awaited_;
  WorkQueue queue_;
};

}  // namespace tulo
