#include "service/listing/MissingRows.h"

#include "service/base/Time.h"
#include "service/replica/Journal.h"
#include "service/replica/JournalTree.h"

namespace tulo {

namespace {

// The host deleted a folder in which something new waits: the folder is made again for it.
void becomeLocal(Reconciliation& pass, const Node& folder) {
  ReplicaWriter& writer = pass.writer;
  writer.clearItem(folder.id);
  Change change = journal::begin(writer, folder, WallTime{});
  change.hostHasNothing();
  journal::put(writer, change);
  for (const Node& child : writer.childNodes(folder.id)) {
    if (!journal::anyBelow(writer, child.id)) {
      writer.detach(child.id, secondsNow());
      pass.invalidations.push_back(entryDeleted(folder.id, child.id, child.name));
    } else if (child.kind == NodeKind::folder && !child.identifier.empty()) {
      becomeLocal(pass, child);
    }
  }
}

// False: the node goes with its item.
bool outlivesItem(Reconciliation& pass, FolderChanges& changes, const Node& node) {
  if (changes.of(node.id) || pass.openFiles.isOpenForWriting(node.id)) {
    pass.incomplete = true;
    return true;
  }
  if (node.kind != NodeKind::folder || !journal::anyBelow(pass.writer, node.id)) return false;
  becomeLocal(pass, node);
  return true;
}

}  // namespace

void detachMissing(Reconciliation& pass, FolderChanges& changes,
                   const std::vector<const Node*>& missing) {
  const WallSeconds now = secondsNow();
  for (const Node* node : missing) {
    if (outlivesItem(pass, changes, *node)) continue;
    pass.writer.detach(node->id, now);
    pass.invalidations.push_back(entryDeleted(pass.folder.id, node->id, node->name));
    pass.listingChanged = true;
  }
}

}  // namespace tulo
