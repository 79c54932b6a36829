#include "service/upload/Judge.h"

#include <cerrno>

#include "service/base/ServiceLog.h"
#include "service/errors/Errno.h"
#include "service/replica/Ancestors.h"
#include "service/replica/Journal.h"

namespace tulo {

void Judge::check(NodeId id) try {
  if (!verdicts_.isAwaited(id)) return;
  std::optional<Change> change;
  bool staysHere = false;
  replica_.read([&](ReplicaReader& reader) {
    change = journal::find(reader, id);
    const std::optional<Node> node = reader.node(id);
    staysHere = !node || (change && !change->isDeleted() && localNames_.matches(node->name));
  });
  if (!change || change->standing.isHeld() || staysHere) {
    verdicts_.settled(id);
  } else if (change->standing.isRefused()) {
    verdicts_.failed(id, EIO);
  }
} catch (const std::exception& error) {
  serviceLog().error("cannot see what became of node %d: %{public}@", {id.number(), error.what()});
  verdicts_.failed(id, errnoFor(error));
}

bool Judge::waitsFor(NodeId id, NodeId other) {
  return replica_.read([&](ReplicaReader& reader) {
    const auto ends = [&](const Node& node) {
      return node.id == other || !node.identifier.empty();
    };
    const std::optional<Node> found = firstUpwards(reader, id, ends);
    return found && found->id == other;
  });
}

void Judge::failed(NodeId id, int error, bool all) {
  if (all) return verdicts_.failAll(error);
  for (NodeId awaited : verdicts_.awaited()) {
    if (waitsFor(awaited, id)) verdicts_.failed(awaited, error);
  }
  verdicts_.failed(id, error);
}

}  // namespace tulo
