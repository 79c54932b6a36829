#include "service/upload/Conflict.h"

#include "service/base/Names.h"
#include "service/replica/Journal.h"
#include "service/replica/Listings.h"
#include "service/upload/ConflictName.h"
#include "service/upload/SentContents.h"

namespace tulo {

Invalidations Conflict::part(NodeId id, const ItemRecord& item) {
  std::optional<Node> node = writer_.node(id);
  std::optional<Change> change = journal::find(writer_, id);
  if (!node || !change || change->isDeleted()) return {};
  const std::string former = node->name;
  renameCopy(*node);
  parts_.acknowledged.note(item.identifier);
  writer_.setIdentifier(node->id, "");
  parts_.store.setName(node->content, node->name);
  startOver(*node, *change);
  const Node theirs = insertTheirs(*node, item);
  Invalidations told = {entryChanged(node->parent, former), entryChanged(node->parent, node->name),
                        entryChanged(theirs.parent, theirs.name), dataChanged(node->parent)};
  if (theirs.parent != node->parent) told.push_back(dataChanged(theirs.parent));
  return told;
}

void Conflict::renameCopy(Node& node) {
  // The host's spelling: what is shown may be one that only a folder here needs.
  const std::string former = node.filename;
  for (unsigned attempt = 1; attempt == 1 || writer_.childNamed(node.parent, node.name);
       ++attempt) {
    node.filename =
        conflictedName(former, parts_.machine, inSeconds(parts_.files.wallNow()), attempt);
    node.name = names::shown(node.filename);
  }
  node.contentVersion.clear();
  writer_.update(node);
}

void Conflict::startOver(const Node& node, Change& change) {
  change.hostHasNothing();
  dropSentContents(writer_, change, node.content);
  change.request.answered();
  change.standing.startOver(parts_.files.now());
  journal::put(writer_, change);
}

Node Conflict::insertTheirs(const Node& ours, const ItemRecord& item) {
  const std::optional<Node> home = writer_.nodeFor(item.parentIdentifier);
  Node theirs;
  theirs.parent = home ? home->id : ours.parent;
  theirs.filename = item.filename;
  theirs.name = names::shown(item.filename);
  theirs.kind = NodeKind::file;
  theirs.identifier = item.identifier;
  theirs.contentVersion = item.contentVersion;
  theirs.metadataVersion = item.metadataVersion;
  theirs.size = item.size;
  theirs.modified = {item.modified, {}};
  theirs.capabilities = item.capabilities;
  theirs.kept = ours.kept;
  if (writer_.insert(theirs) == kNoNode) {
    theirs.name = names::marked(item.filename, item.identifier, 0);
    writer_.insert(theirs);
  }
  // It may be gone from there before anybody lists it.
  listings::forget(writer_, theirs.parent);
  return theirs;
}

}  // namespace tulo
