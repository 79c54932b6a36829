#include "service/listing/NewRows.h"

#include <algorithm>
#include <optional>

#include "service/base/Names.h"
#include "service/base/Time.h"
#include "service/listing/CircleGuard.h"
#include "service/listing/FreeName.h"
#include "service/listing/RowUpdates.h"
#include "service/replica/Journal.h"

namespace tulo {

namespace {

void describe(const Reconciliation& pass, const ItemRecord& item, Node& node) {
  node.id = kNoNode;
  node.parent = pass.folder.id;
  node.filename = item.filename;
  node.name = names::shown(item.filename);
  node.kind = item.kind;
  node.identifier = item.identifier;
  node.size = item.size;
  node.modified = {item.kind == NodeKind::folder ? secondsNow() : item.modified, {}};
  node.capabilities = item.capabilities;
  node.contentVersion = item.contentVersion;
  node.metadataVersion = item.metadataVersion;
  node.kept = pass.folder.kept;
}

// The item was elsewhere, or nowhere for a while. A name and contents that were given to it here
// stay until the host has them.
void moveHere(Reconciliation& pass, const Node& known, const ItemRecord& item) {
  ItemRecord merged = item;
  if (std::optional<Change> change = journal::find(pass.writer, known.id)) {
    if (known.filename != change->base().place.filename) merged.filename = known.filename;
    change->hostHasIn({pass.folder.identifier, item.filename});
    journal::put(pass.writer, *change);
  }
  if (known.state == ContentState::dirty || pass.openFiles.isOpenForWriting(known.id)) {
    merged.size = known.size;
    merged.modified = known.modified.whole;
    merged.contentVersion = known.contentVersion;
    pass.incomplete = true;
  }
  updateRow(pass, {known, &merged, true});
}

// The identifier is known in another place, or the name is taken. False: nothing to insert.
bool insertElsewhere(Reconciliation& pass, Node& node, const ItemRecord& item) {
  if (const std::optional<Node> known = pass.writer.nodeFor(item.identifier)) {
    // The second row of one identifier in one listing: the first one stands.
    if (known->parent == pass.folder.id && known->kind == item.kind) return false;
    if (known->kind == item.kind) {
      if (makeWay(pass, *known)) moveHere(pass, *known, item);
      return false;
    }
    pass.writer.remove(known->id);
    if (known->parent != kNoNode) {
      pass.invalidations.push_back(entryChanged(known->parent, known->name));
    }
  }
  node.name = freeName(pass.writer, pass.folder.id, item);
  return pass.writer.insert(node) != kNoNode;
}

void noteNew(Reconciliation& pass, Node& node, const ItemRecord& item) {
  if (node.id == kNoNode && !insertElsewhere(pass, node, item)) return;
  pass.listingChanged = true;
  if (!pass.firstTime) pass.invalidations.push_back(entryChanged(pass.folder.id, node.name));
}

}  // namespace

void insertRows(Reconciliation& pass, const std::vector<const ItemRecord*>& fresh) {
  // Kept from one turn to the next, with the memory of their texts.
  std::vector<Node> nodes(ReplicaWriter::kManyNodes);
  for (std::size_t done = 0; done < fresh.size(); done += nodes.size()) {
    nodes.resize(std::min(nodes.size(), fresh.size() - done));
    for (std::size_t i = 0; i < nodes.size(); ++i)
      describe(pass, *fresh[done + i], nodes[i]);
    pass.writer.insertMany(nodes);
    for (std::size_t i = 0; i < nodes.size(); ++i)
      noteNew(pass, nodes[i], *fresh[done + i]);
  }
}

}  // namespace tulo
