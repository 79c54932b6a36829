#include "service/listing/CircleGuard.h"

#include <cstddef>
#include <optional>

#include "service/base/Time.h"
#include "service/replica/Journal.h"
#include "service/replica/Listings.h"

namespace tulo {

namespace {

// No path is deeper; ends the way of a tree that goes round in a circle.
constexpr std::size_t kDeepest = 4096;

// The child of the ancestor in which, or below which, the folder is.
std::optional<Node> branchOf(ReplicaReader& reader, NodeId folder, NodeId ancestor) {
  for (std::size_t i = 0; i < kDeepest && folder != kRootNode; ++i) {
    std::optional<Node> row = reader.node(folder);
    if (!row || row->parent == kNoNode || row->parent == ancestor) {
      return row && row->parent == ancestor ? row : std::nullopt;
    }
    folder = row->parent;
  }
  return std::nullopt;
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
