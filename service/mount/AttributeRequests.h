// What the kernel asks of extended attributes. Private to the mount.
//
// Threads: every member may be called on any thread; each request is answered before it returns.
#pragma once

#include <string>

#include "service/mount/Fuse.h"
#include "service/mount/MountParts.h"

namespace tulo {

class AttributeRequests {
 public:
  explicit AttributeRequests(const MountParts& parts);

  void getxattr(fuse_req_t request, NodeId node, const char* name, std::size_t room);
  void listxattr(fuse_req_t request, NodeId node, std::size_t room);

 private:
  Replica& replica_;
  const std::string domain_;
};

}  // namespace tulo
