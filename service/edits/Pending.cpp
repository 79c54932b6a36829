#include "service/edits/Pending.h"

#include "service/base/Names.h"
#include "service/edits/EditParts.h"
#include "service/replica/Ancestors.h"
#include "service/replica/Journal.h"
#include "service/replica/JournalTree.h"

namespace tulo::pending {

namespace {

std::string joined(const std::string& folder, const std::string& name) {
  return folder.empty() ? name : folder + '/' + name;
}

// Where the host has it.
std::string basePath(ReplicaReader& reader, const Change& change, std::size_t depth = 0) {
  const std::string name = names::shown(change.base().place.filename);
  const std::optional<Node> folder = reader.nodeFor(change.base().place.parent);
  if (!folder || folder->id == kRootNode || depth > kDeepest) return name;
  if (folder->parent != kNoNode) return joined(pathOf(reader, folder->id), name);
  const std::optional<Change> deleted = journal::find(reader, folder->id);
  return deleted ? joined(basePath(reader, *deleted, depth + 1), name) : name;
}

}  // namespace

const char* kindOf(const Change& change) {
  if (change.isDeleted()) return "delete";
  if (change.base().place.filename.empty()) return "new";
  return change.hasContents() ? "contents" : "name";
}

std::string pathOf(ReplicaReader& reader, NodeId node) {
  std::string path;
  for (const std::string& part : reader.path(node))
    path = joined(path, part);
  return path;
}

Item describe(ReplicaReader& reader, const Change& change) {
  Item item;
  item.change = change;
  const std::optional<Node> node = reader.node(change.node());
  if (node) {
    item.kind = node->kind;
    item.size = node->size;
  }
  item.isNew = change.base().place.filename.empty();
  const std::string base = item.isNew ? std::string() : basePath(reader, change);
  item.path = change.isDeleted() ? base : pathOf(reader, change.node());
  if (change.isDeleted() && item.isNew && node) item.path = node->name;
  if (item.path != base) item.former = base;
  return item;
}

NodeId deletedFrom(ReplicaReader& reader, NodeId folder, std::string_view name) {
  const std::optional<Node> parent = reader.node(folder);
  if (!parent) return kNoNode;
  const std::string filename = edits::filenameFor(reader, *parent, name);
  for (const Change& change : journal::basedOn(reader, parent->identifier, filename)) {
    if (change.isDeleted()) return change.node();
  }
  return kNoNode;
}

}  // namespace tulo::pending
