#include "service/control/Operations.h"
#include "service/control/Scope.h"
#include "service/control/Shown.h"

namespace tulo::control {

ChangesReply changes(const ControlParts& parts, const ChangesRequest& request) {
  const Scope scope = scopeOf(parts, request);
  ChangesReply reply{Outcome::with(scope.unknown), {}};
  for (NodeId node : changedIn(parts, scope)) {
    // One session for each: a long queue must not keep the log of the replica from being cut.
    auto change = parts.replica.read(
        [&](ReplicaReader& reader) { return shownInFull(parts.openFiles, reader, node); });
    if (change) reply.changes.push_back(std::move(*change));
  }
  return reply;
}

}  // namespace tulo::control
