#include "service/mount/Handlers.h"

#include "service/mount/Negotiation.h"

namespace tulo {

Handlers::Handlers(const MountParts& parts, uid_t user, gid_t group)
    : writable(parts.edits != nullptr),
      entries(parts, user, group),
      interrupts(parts),
      verdicts(parts, interrupts),
      handles(parts, passthrough),
      tree(parts, entries),
      directories(parts, entries),
      attributes(parts),
      opening(parts, handles, interrupts),
      reading(parts),
      names(parts, entries, handles, verdicts),
      settings(parts, entries, tree),
      writing(parts, verdicts) {}

void Handlers::initialize(fuse_conn_info& connection) {
  negotiate(connection, writable);
  if (!writable) passthrough.negotiate(connection);
}

}  // namespace tulo
