// Lets the kernel read downloaded files by itself, without asking this process for their bytes:
// where libfuse (3.17.1), the kernel (6.9) and the rights of this process (CAP_SYS_ADMIN) have it.
// Everything is read through the service otherwise, and nobody notices a difference but in speed.
//
// The kernel demands that all opens of one inode at a time go the same way, and by one backing
// file: the first open decides, and the others follow. A file that is read that way cannot be
// opened for writing in any other, so this is for mounts in which nothing is written.
//
// Threads: every member may be called on any thread.
#pragma once

#include <atomic>
#include <unordered_map>

#include "platform/linux/Mutex.h"
#include "service/contents/OpenFile.h"
#include "service/mount/Fuse.h"

namespace tulo {

class Passthrough {
 public:
  // Asks the kernel for it, while the connection is made.
  void negotiate(fuse_conn_info& connection);

  // Completes the answer to an open for reading of a file that is here.
  void opened(fuse_req_t request, OpenFile& file, fuse_file_info& info);
  // The open is over. Without a request, whoever opens the file next cleans up.
  void closed(fuse_req_t request, NodeId node);

 private:
#ifdef FUSE_CAP_PASSTHROUGH
  struct State {
    std::uint64_t opens = 0;
    int backing = 0;  // the kernel's number; 0: read through the service
  };

  int begin(fuse_req_t request, OpenFile& file);
  static void end(fuse_req_t request, int backing);

  bool negotiated_ = false;  // set before the first request
  // Set once the kernel refuses: it will not change its mind.
  std::atomic<bool> refused_ = false;
  Mutex mutex_;  // held while the kernel is told of a backing file, taken alone
  std::unordered_map<NodeId, State> states_ TULO_GUARDED_BY(mutex_);
#endif
};

}  // namespace tulo
