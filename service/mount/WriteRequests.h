// The bytes of open files, and when they are safe. Private to the mount.
//
// Threads: every member may be called on any thread. With --sync a flush is answered from the
// host's verdict, everything else before the call returns.
#pragma once

#include <memory>

#include "service/mount/Fuse.h"
#include "service/mount/MountParts.h"
#include "service/mount/VerdictReplies.h"

namespace tulo {

class WriteRequests {
 public:
  WriteRequests(const MountParts& parts, VerdictReplies& verdicts);

  void write(fuse_req_t request, NodeId node, const char* data, std::size_t size, off_t offset);
  void flush(fuse_req_t request, NodeId node);
  void fsync(fuse_req_t request, NodeId node, bool dataOnly);
  void fsyncFolder(fuse_req_t request);
  void fallocate(fuse_req_t request, NodeId node, int mode, off_t offset, off_t length);
  struct Place {
    NodeId node = kNoNode;
    off_t offset = 0;
  };
  void copyRange(fuse_req_t request, const Place& from, const Place& to, std::size_t size);
  void lseek(fuse_req_t request, NodeId node, off_t offset, int whence);

 private:
  // The contents of a node that is open; answers the request and gives null when there are none.
  std::shared_ptr<WritableFile> shared(fuse_req_t request, NodeId node);

  Replica& replica_;
  // Null in a mount in which nothing can be changed.
  LocalFiles* const files_;
  VerdictReplies& verdicts_;
};

}  // namespace tulo
