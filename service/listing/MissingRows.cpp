#include "service/listing/MissingRows.h"

#include <vector>

#include "service/base/Time.h"
#include "service/kernel/RescueNews.h"
#include "service/replica/Journal.h"
#include "service/replica/JournalTree.h"

namespace tulo {

namespace {

// The host deleted a folder in which nothing waits for it; what only this machine has stays here.
void rescue(Reconciliation& pass, const Node& node) {
  if (node.kind != NodeKind::folder) return;
  for (const Invalidation& news : newsOf(rescueLocal(pass.writer, node.id)))
    pass.invalidations.push_back(news);
}

// Whether this side put it into the folder, while the host has it elsewhere: it did not go with the
// folder there.
bool isMovedIn(ReplicaReader& reader, const Node& child, const Node& folder) {
  const std::optional<Change> change = journal::find(reader, child.id);
  return change && change->base().isPlaced() && change->base().place.parent != folder.identifier;
}

// Whether the node or something below it is open for writing, and so may be changed at any moment.
bool isBeingWritten(const Reconciliation& pass, NodeId node) {
  const std::vector<NodeId> open = pass.openFiles.allOpenForWriting();
  return !open.empty() && journal::isAnyWithin(pass.writer, node, open);
}

// The host deleted a folder in which something new waits: the folder is made again for it.
void becomeLocal(Reconciliation& pass, const Node& folder) {
  ReplicaWriter& writer = pass.writer;
  for (const Node& child : writer.childNodes(folder.id)) {
    if (isMovedIn(writer, child, folder)) continue;
    const bool isOfHost = child.kind == NodeKind::folder && !child.identifier.empty();
    const bool goes = isOfHost ? !journal::anyToSendBelow(writer, child.id)
                               : !journal::anyBelow(writer, child.id);
    if (goes) {
      if (isBeingWritten(pass, child.id)) continue;
      rescue(pass, child);
      writer.detach(child.id, steadySeconds());
      pass.invalidations.push_back(entryDeleted(folder.id, child.id, child.name));
    } else if (isOfHost) {
      becomeLocal(pass, child);
    }
  }
  writer.clearItem(folder.id);
  Change change = journal::begin(writer, folder, WallTime{});
  change.hostHasNothing();
  journal::put(writer, change);
}

// False: the node goes with its item.
bool outlivesItem(Reconciliation& pass, FolderChanges& changes, const Node& node) {
  if (changes.of(node.id)) {
    pass.incomplete = true;
    return true;
  }
  if (node.kind == NodeKind::folder && journal::anyToSendBelow(pass.writer, node.id)) {
    becomeLocal(pass, node);
    return true;
  }
  if (isBeingWritten(pass, node.id)) {
    pass.incomplete = true;
    return true;
  }
  rescue(pass, node);
  return false;
}

}  // namespace

void detachMissing(Reconciliation& pass, FolderChanges& changes,
                   const std::vector<const Node*>& missing) {
  const WallSeconds now = steadySeconds();
  for (const Node* node : missing) {
    if (outlivesItem(pass, changes, *node)) continue;
    pass.writer.detach(node->id, now);
    pass.invalidations.push_back(entryDeleted(pass.folder.id, node->id, node->name));
    pass.listingChanged = true;
  }
}

}  // namespace tulo
