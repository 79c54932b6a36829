#include "service/listing/RowUpdates.h"

#include <string>

#include "service/listing/FreeName.h"
#include "service/replica/KeptNodes.h"
#include "service/replica/Listings.h"
#include "service/replica/LocalTimes.h"
#include "service/replica/NodeContents.h"

namespace tulo {

namespace {

bool changesContents(const Node& node, const ItemRecord& item) {
  return node.kind == NodeKind::file &&
         (node.contentVersion != item.contentVersion || node.size != item.size);
}

// Times that were set here stay until the host has other contents.
bool keepsTime(ReplicaWriter& writer, NodeId node, bool newContents) {
  const bool keeps = localTimes::isNoted(writer, node);
  if (keeps && newContents) localTimes::forget(writer, node);
  return keeps && !newContents;
}

Node rowFor(Reconciliation& pass, const KeptItem& kept, bool newContents) {
  const ItemRecord& item = *kept.item;
  Node node = kept.before;
  if (kept.renamed) node.name = freeName(pass.writer, pass.folder.id, item);
  if (!kept.elsewhere) {
    node.parent = pass.folder.id;
    node.kept = pass.folder.kept || node.pinned;
  }
  node.filename = item.filename;
  node.size = item.size;
  if (item.kind == NodeKind::file && !keepsTime(pass.writer, node.id, newContents)) {
    node.modified = {item.modified, {}};
  }
  node.capabilities = item.capabilities;
  node.contentVersion = item.contentVersion;
  node.metadataVersion = item.metadataVersion;
  return node;
}

void noteMoved(Reconciliation& pass, const Node& before, const std::string& name) {
  const NodeId folder = pass.folder.id;
  if (before.parent != kNoNode) {
    pass.invalidations.push_back(entryChanged(before.parent, before.name));
  }
  if (before.parent != folder && before.parent != kNoNode) {
    pass.invalidations.push_back(dataChanged(before.parent));
    listings::forget(pass.writer, before.parent);
  }
  if (!pass.firstTime) pass.invalidations.push_back(entryChanged(folder, name));
  pass.listingChanged = true;
}

// The kernel was told that the folder is gone, and gives nothing out of it any more as long as it
// holds it: what came back has to be another folder to it.
void startAfresh(Reconciliation& pass, const Node& before) {
  const bool cameBack = before.kind == NodeKind::folder && before.parent == kNoNode;
  if (!cameBack || !pass.folders.isKnown(before.id)) return;
  pass.renumbered.emplace_back(before.id, pass.writer.renumber(before.id));
}

// `now`: the same node where it is from now on.
void replaceContents(Reconciliation& pass, const Node& before, const Node& now) {
  if (before.state == ContentState::dirty) return;
  if (!pass.gateHeld) throw NeedsGate();
  nodeContents::drop(pass.writer, before.id);
  if (!pass.openFiles.isOpen(before.id)) {
    pass.invalidations.push_back(dataChanged(before.id));
    return;
  }
  pass.writer.renumber(before.id);
  pass.leftBehind.push_back(before);
  pass.invalidations.push_back(entryChanged(now.parent, now.name));
  if (now.parent == pass.folder.id) {
    pass.listingChanged = true;
  } else {
    pass.invalidations.push_back(dataChanged(now.parent));
  }
}

}  // namespace

void updateRow(Reconciliation& pass, const KeptItem& kept) {
  const Node& before = kept.before;
  const bool contents = changesContents(before, *kept.item);
  const Node node = rowFor(pass, kept, contents);
  pass.writer.update(node);
  if (node.kind == NodeKind::folder && node.kept != before.kept) {
    keptNodes::setBelow(pass.writer, node.id, node.kept);
  }
  const bool moved = before.parent != node.parent || node.name != before.name;
  if (moved) noteMoved(pass, before, node.name);
  if (contents) {
    replaceContents(pass, before, node);
  } else if (!moved || node.capabilities != before.capabilities) {
    pass.invalidations.push_back(attributesChanged(node.id));
  }
  startAfresh(pass, before);
}

void updateRows(Reconciliation& pass, const std::vector<KeptItem>& kept) {
  for (const KeptItem& one : kept) {
    if (one.renamed) pass.writer.parkName(one.before.id);
  }
  for (const KeptItem& one : kept)
    updateRow(pass, one);
}

}  // namespace tulo
