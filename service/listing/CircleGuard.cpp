#include "service/listing/CircleGuard.h"

#include <optional>

#include "service/base/Time.h"
#include "service/replica/Ancestors.h"
#include "service/replica/Journal.h"
#include "service/replica/Listings.h"

namespace tulo {

namespace {

// The child of the ancestor in which, or below which, the folder is.
std::optional<Node> branchOf(ReplicaReader& reader, NodeId folder, NodeId ancestor) {
  return firstUpwards(reader, folder, [&](const Node& row) { return row.parent == ancestor; });
}

}  // namespace

bool makeWay(Reconciliation& pass, const Node& moved) {
  if (moved.kind != NodeKind::folder) return true;
  const std::optional<Node> branch = branchOf(pass.writer, pass.folder.id, moved.id);
  if (!branch) return true;
  if (journal::find(pass.writer, branch->id)) {
    pass.incomplete = true;
    pass.outdated = true;
    return false;
  }
  pass.writer.detach(branch->id, steadySeconds());
  listings::forget(pass.writer, moved.id);
  pass.invalidations.push_back(entryChanged(moved.id, branch->name));
  pass.invalidations.push_back(dataChanged(moved.id));
  return true;
}

}  // namespace tulo
