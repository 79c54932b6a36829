#include "service/listing/FolderChanges.h"

#include "service/replica/Journal.h"

#include <optional>
#include <utility>

namespace tulo {

FolderChanges::FolderChanges(ReplicaWriter& writer, const Node& folder)
    : writer_(writer),
      folder_(folder.id),
      identifier_(folder.identifier),
      nothingPending_(journal::isEmpty(writer)) {
  if (nothingPending_) return;
  add(journal::inFolder(writer, folder_));
  add(journal::basedIn(writer, identifier_));
  // What was moved away or deleted here meanwhile must not turn up a second time.
  add(journal::sentInto(writer, identifier_));
}

void FolderChanges::add(std::vector<Change> changes) {
  for (Change& change : changes) {
    const NodeId node = change.node();
    changes_.emplace(node, std::move(change));
  }
}

Change* FolderChanges::of(NodeId node) {
  const auto found = changes_.find(node);
  return found == changes_.end() ? nullptr : &found->second;
}

void FolderChanges::rebase(Change& change, const ItemRecord& item) {
  const Place place{identifier_, item.filename};
  if (change.base().place == place) return;
  change.hostHasIn(place);
  journal::put(writer_, change);
}

std::optional<Node> FolderChanges::movedAway(const ItemRecord& item) {
  if (nothingPending_) return std::nullopt;
  std::optional<Node> known = writer_.nodeFor(item.identifier);
  if (!known || known->kind != item.kind || known->parent == kNoNode) return std::nullopt;
  const std::optional<Change> change = journal::find(writer_, known->id);
  const bool isAway = change && !change->isDeleted() && known->parent != folder_;
  return isAway ? known : std::nullopt;
}

bool FolderChanges::isOurs(const ItemRecord& item) {
  return isBeingMade(item) || isElsewhere(item);
}

bool FolderChanges::isBeingMade(const ItemRecord& item) {
  for (const auto& [id, change] : changes_) {
    if (!change.request.isOpen() || change.base().isPlaced()) continue;
    const std::optional<Node> node = writer_.node(id);
    if (node && node->kind == item.kind && change.request.place().filename == item.filename)
      return true;
  }
  return false;
}

bool FolderChanges::isElsewhere(const ItemRecord& item) {
  if (nothingPending_) return false;
  const std::optional<Node> known = writer_.nodeFor(item.identifier);
  if (!known || known->parent == folder_) return false;
  std::optional<Change> change = journal::find(writer_, known->id);
  if (!change) return false;
  // Moved or deleted here; or moved there and changed here, which is no reason not to follow. What
  // was out of the tree for a while has no place here that could be another one.
  const std::optional<Node> parent = writer_.node(known->parent);
  const bool movedHere =
      change->isDeleted() || (parent && parent->identifier != change->base().place.parent);
  if (movedHere) rebase(*change, item);
  return movedHere;
}

}  // namespace tulo
