// Opening and closing files. Private to the mount.
//
// Threads: every member may be called on any thread; an open that has to wait is answered from the
// download's completion.
#pragma once

#include "service/mount/Fuse.h"
#include "service/mount/Handles.h"
#include "service/mount/Interrupts.h"
#include "service/mount/MountParts.h"

namespace tulo {

class OpenRequests {
 public:
  OpenRequests(const MountParts& parts, Handles& handles, Interrupts& interrupts);

  void open(fuse_req_t request, NodeId node, const fuse_file_info& info);
  void release(fuse_req_t request, const fuse_file_info& info);

 private:
  // 0, or why nobody may open the file for writing.
  int mayWrite(NodeId node) const;
  // Empties the file; 0 or an errno.
  int emptied(NodeId node) const;
  void openEmptied(fuse_req_t request, NodeId node, const fuse_file_info& info);
  void openWhole(fuse_req_t request, NodeId node, const fuse_file_info& info);
  void openWaiting(fuse_req_t request, NodeId node, const fuse_file_info& info, OpenStep missing);
  void reply(fuse_req_t request, const fuse_file_info& info, OpenAnswer answer);

  Contents& contents_;
  OpenFiles& openFiles_;
  Notifier& notifier_;
  Edits* const edits_;
  LocalFiles* const files_;
  Handles& handles_;
  Interrupts& interrupts_;
};

}  // namespace tulo
