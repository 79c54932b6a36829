#include "service/control/Scope.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <unordered_set>

#include "service/edits/Pending.h"
#include "service/replica/JournalTree.h"

namespace tulo::control {

Scope scopeOf(const ControlParts& parts, const ChangesRequest& request) {
  Scope scope;
  scope.nodes = request.nodes.value_or(std::vector<NodeId>());
  for (const DeletedName& each : request.deleted.value_or(std::vector<DeletedName>())) {
    const NodeId found = parts.replica.read([&](ReplicaReader& reader) {
      return pending::deletedFrom(reader, each.folder, each.name);
    });
    if (found == kNoNode) {
      scope.unknown.push_back({each.name, std::strerror(ENOENT)});
    } else {
      scope.nodes.push_back(found);
    }
  }
  const auto root = std::find(scope.nodes.begin(), scope.nodes.end(), kRootNode);
  scope.everything = request.namesNothing() || root != scope.nodes.end();
  return scope;
}

std::vector<NodeId> changedIn(const ControlParts& parts, const Scope& scope) {
  return parts.replica.read([&](ReplicaReader& reader) {
    if (scope.everything) return journal::within(reader, kRootNode);
    std::vector<NodeId> result;
    std::unordered_set<NodeId> seen;
    for (NodeId node : scope.nodes) {
      for (NodeId each : journal::within(reader, node)) {
        if (seen.insert(each).second) result.push_back(each);
      }
    }
    return result;
  });
}

}  // namespace tulo::control
