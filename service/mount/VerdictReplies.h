// With --sync: answers a request with the host's word on what it changed. Private to the mount.
//
// Threads: every member may be called on any thread.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "service/mount/Fuse.h"
#include "service/mount/Interrupts.h"
#include "service/mount/MountParts.h"

namespace tulo {

class VerdictReplies {
 public:
  VerdictReplies(const MountParts& parts, Interrupts& interrupts);

  // Whether anybody waits for the host in this mount. Else the members below ask nothing.
  bool wanted() const { return awaited_ != nullptr; }

  // The node of that name, to be waited for; kNoNode when there is none.
  NodeId nodeNamed(NodeId folder, const std::string& name);

  // Whether the host shall be waited for when the file is closed. Not for an empty one: a shell
  // opens it, closes one of two descriptors, and only then are its contents written.
  bool isUnsent(NodeId file);

  // `succeeded` answers once the host has the changes of the nodes. After a failure the kernel
  // takes the call for one that did nothing, so it is told to look at the names again.
  void reply(fuse_req_t request, const std::vector<NodeId>& nodes, Invalidations names,
             std::function<void()> succeeded);

 private:
  Replica& replica_;
  Notifier& notifier_;
  Interrupts& interrupts_;
  Uploader* const awaited_;
  const milliseconds patience_;
};

}  // namespace tulo
