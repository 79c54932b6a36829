// Changing what a node is like: size, permissions, times. Private to the mount.
//
// Threads: every member may be called on any thread; where contents have to be here first, a
// request is answered from the download's completion.
#pragma once

#include <sys/stat.h>

#include "service/mount/EntryReplies.h"
#include "service/mount/Fuse.h"
#include "service/mount/MountParts.h"
#include "service/mount/TreeRequests.h"

namespace tulo {

class SetAttributeRequests {
 public:
  // `tree` answers with what the node is like then.
  SetAttributeRequests(const MountParts& parts, const EntryReplies& entries, TreeRequests& tree);

  // `fields`: those of `wanted` that count, FUSE_SET_ATTR_*.
  void setattr(fuse_req_t request, NodeId node, const struct stat& wanted, int fields);

 private:
  void resize(fuse_req_t request, NodeId node, const struct stat& wanted, int fields);
  void apply(fuse_req_t request, NodeId node, const struct stat& wanted, int fields);
  // The first errno; 0 when all that was wanted is done.
  int change(NodeId node, const struct stat& wanted, int fields);
  int truncate(NodeId node, off_t size);
  int setModified(NodeId node, const struct stat& wanted, int fields);

  Contents& contents_;
  OpenFiles& openFiles_;
  Edits* const edits_;
  LocalFiles* const files_;
  const EntryReplies& entries_;
  TreeRequests& tree_;
};

}  // namespace tulo
