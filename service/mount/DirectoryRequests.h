// What is in a folder. Private to the mount.
//
// Threads: every member may be called on any thread; each request is answered exactly once, at the
// latest from a listing's completion.
#pragma once

#include <functional>

#include "service/mount/DirectoryBuffer.h"
#include "service/mount/EntryReplies.h"
#include "service/mount/Fuse.h"
#include "service/mount/MountParts.h"

namespace tulo {

class DirectoryRequests {
 public:
  DirectoryRequests(const MountParts& parts, const EntryReplies& entries);

  // A piece of a listing of so many bytes, from the cookie `offset` on. `plus`: with attributes,
  // which the kernel keeps as if it had looked the names up.
  struct Piece {
    NodeId folder = kNoNode;
    std::size_t size = 0;
    off_t offset = 0;
    bool plus = false;
  };
  void readdir(fuse_req_t request, const Piece& piece);

 private:
  void refreshThenFill(fuse_req_t request, const Piece& piece, bool known);
  void fill(fuse_req_t request, const Piece& piece);
  bool addDots(fuse_req_t request, const Piece& piece, DirectoryBuffer& buffer) const;
  // Returns the folders that the kernel remembers then.
  std::vector<NodeId> addChildren(fuse_req_t request, const Piece& piece, DirectoryBuffer& buffer);

  Replica& replica_;
  Sync& sync_;
  Folders& folders_;
  const EntryReplies& entries_;
  const std::function<void(NodeId)> listed_;
};

}  // namespace tulo
