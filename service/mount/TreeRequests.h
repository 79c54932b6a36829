// What the kernel asks of the tree: which node a name stands for, and what a node is. Private to
// the mount.
//
// Threads: every member may be called on any thread; each request is answered exactly once, at the
// latest from a listing's completion.
#pragma once

#include <string>

#include "service/mount/EntryReplies.h"
#include "service/mount/Fuse.h"
#include "service/mount/MountParts.h"

namespace tulo {

class TreeRequests {
 public:
  TreeRequests(const MountParts& parts, const EntryReplies& entries);

  void lookup(fuse_req_t request, NodeId folder, const char* name);
  void forget(NodeId node, std::uint64_t count) { folders_.forgotten(node, count); }
  void getattr(fuse_req_t request, NodeId node);
  void statfs(fuse_req_t request);

 private:
  // False when the folder must be refreshed before the question can be answered.
  bool tryLookup(fuse_req_t request, NodeId folder, const std::string& name);
  // After the folder was refreshed, or could not be, because of `error`.
  void finishLookup(fuse_req_t request, NodeId folder, const std::string& name, int error);
  NameLookup find(NodeId folder, const std::string& name);
  void replyLookup(fuse_req_t request, const NameLookup& found, int error);

  Replica& replica_;
  Sync& sync_;
  OpenFiles& openFiles_;
  Folders& folders_;
  const EntryReplies& entries_;
};

}  // namespace tulo
