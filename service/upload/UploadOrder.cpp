#include "service/upload/UploadOrder.h"

#include "service/base/Names.h"
#include "service/replica/Ancestors.h"
#include "service/replica/Journal.h"
#include "service/upload/AsideName.h"

namespace tulo {

namespace {

bool waitsForUser(const Change& change) {
  return !change.standing.isReady();
}

}  // namespace

bool mayInherit(const Node& node) {
  const bool here = node.identifier.empty() || node.state != ContentState::dataless;
  return node.kind == NodeKind::file && (here || node.size == 0);
}

bool occupies(const Change& other, const std::optional<Node>& former, const Node& node,
              const LocalNames& localNames) {
  if (other.node() == node.id || waitsForUser(other)) return false;
  const bool leavesIdentity = former && former->kind == NodeKind::file && mayInherit(node) &&
                              !other.request.isOpen() &&
                              (other.isDeleted() || localNames.matches(former->name));
  return !leavesIdentity;
}

Turn UploadOrder::turnOf(const Change& change) {
  // What became of a request is found out first, whatever the order of what comes after.
  if (change.request.isOpen()) return Turn::now;
  const std::optional<Node> node = reader_.node(change.node());
  if (!node) return Turn::now;
  return change.isDeleted() ? turnOfRemoval(change, *node) : turnOfMove(change, *node);
}

Turn UploadOrder::turnOfRemoval(const Change& change, const Node& node) {
  if (node.kind == NodeKind::folder) {
    return journal::anyBasedIn(reader_, node.identifier, change.node()) ? Turn::later : Turn::now;
  }
  // Something new has its place and takes over its identity.
  const std::optional<Node> parent = reader_.nodeFor(change.base().place.parent);
  if (!parent) return Turn::now;
  return isWanted(change, *parent) ? Turn::later : Turn::now;
}

Turn UploadOrder::turnOfMove(const Change& change, const Node& node) {
  // Out of the tree for a while: there is no place that the host could be told.
  if (node.parent == kNoNode) return Turn::later;
  const std::optional<Node> parent = reader_.node(node.parent);
  if (!parent || (parent->identifier.empty() && !localNames_.matches(node.name))) {
    // A folder that stays here keeps what is in it here.
    const std::optional<Change> above = parent ? journal::find(reader_, parent->id) : std::nullopt;
    if (!above || above->standing.isHeld()) return Turn::now;
  } else if (const std::optional<Turn> turn = turnIn(*parent, change, node)) {
    return *turn;
  }
  return shouldStepAside(change, node) ? Turn::aside : Turn::later;
}

std::optional<Turn> UploadOrder::turnIn(const Node& parent, const Change& change,
                                        const Node& node) {
  for (const Change& other : journal::sentTo(reader_, parent.identifier, node.filename)) {
    if (other.node() != change.node() && !other.standing.isRefused()) return Turn::later;
  }
  bool occupied = false;
  for (const Change& other : journal::basedOn(reader_, parent.identifier, node.filename)) {
    if (other.node() == change.node()) continue;
    if (isActive_(other.node())) return Turn::later;
    occupied = occupied || occupies(other, reader_.node(other.node()), node, localNames_);
  }
  if (occupied) return std::nullopt;
  const bool folderMoves = node.kind == NodeKind::folder && change.base().isPlaced() &&
                           change.base().place.parent != parent.identifier;
  if (!folderMoves) return Turn::now;
  switch (hostHasInside(parent.id, node.id)) {
    case Inside::no:
      return Turn::now;
    case Inside::unknown:
      return Turn::later;
    case Inside::yes:
      return std::nullopt;
  }
  return Turn::now;
}

UploadOrder::Inside UploadOrder::hostHasInside(NodeId folder, NodeId ancestor) {
  for (std::size_t i = 0; i < kDeepest && folder != kRootNode && folder != kNoNode; ++i) {
    if (folder == ancestor) return Inside::yes;
    const std::optional<Change> change = journal::find(reader_, folder);
    if (change && (change->request.isOpen() || isActive_(folder))) return Inside::unknown;
    const bool moved = change && change->base().isPlaced();
    const std::optional<Node> node =
        moved ? reader_.nodeFor(change->base().place.parent) : reader_.node(folder);
    if (!node) return Inside::no;
    folder = moved ? node->id : node->parent;
  }
  return Inside::no;
}

// Whether another node is to have the place that the change's item has at the host.
bool UploadOrder::isWanted(const Change& change, const Node& home) {
  const NameLookup found = reader_.lookup(home.id, names::shown(change.base().place.filename));
  if (!found.entry || found.entry->id == change.node()) return false;
  const std::optional<Node> heir = reader_.node(found.entry->id);
  const std::optional<Change> other = journal::find(reader_, found.entry->id);
  if (!heir || !other || other->isDeleted() || waitsForUser(*other) ||
      other->base().place == change.base().place) {
    return false;
  }
  return !change.isDeleted() || mayInherit(*heir);
}

bool UploadOrder::shouldStepAside(const Change& change, const Node& node) {
  if (node.identifier.empty() || !change.base().isPlaced()) return false;
  const std::optional<Node> home = reader_.nodeFor(change.base().place.parent);
  if (!home) return false;
  const std::optional<Change> above = journal::find(reader_, home->id);
  if (above && above->isDeleted()) return true;
  return change.base().place.filename != asideName(node) && isWanted(change, *home);
}

}  // namespace tulo
