#include "service/edits/Pending.h"

#include "service/base/Names.h"

namespace tulo::pending {

namespace {

constexpr int kDeepest = 4096;

std::string joined(const std::string& folder, const std::string& name) {
  return folder.empty() ? name : folder + '/' + name;
}

// Where the host has it.
std::string basePath(ReplicaReader& reader, const Change& change, int depth = 0) {
  const std::string name = names::shown(change.baseFilename);
  const std::optional<Node> folder = reader.nodeFor(change.baseParent);
  if (!folder || folder->id == kRootNode || depth > kDeepest) return name;
  if (folder->parent != kNoNode) return joined(pathOf(reader, folder->id), name);
  const std::optional<Change> deleted = journal::find(reader.connection(), folder->id);
  return deleted ? joined(basePath(reader, *deleted, depth + 1), name) : name;
}

}  // namespace

const char* kindOf(const Change& change) {
  if (change.deleted) return "delete";
  if (change.baseFilename.empty()) return "new";
  return change.contents ? "contents" : "name";
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
  const std::optional<Node> node = reader.node(change.node);
  if (node) {
    item.kind = node->kind;
    item.size = node->size;
  }
  item.isNew = change.baseFilename.empty();
  const std::string base = item.isNew ? std::string() : basePath(reader, change);
  item.path = change.deleted ? base : pathOf(reader, change.node);
  if (change.deleted && item.isNew && node) item.path = node->name;
  if (item.path != base) item.former = base;
  return item;
}

std::vector<NodeId> within(ReplicaReader& reader, NodeId node) {
  // What is deleted is in no folder any more; its former one is the one that the host has it in.
  sqlite::Statement& statement = reader.connection().cached(
      "WITH RECURSIVE up(change,id,depth) AS (SELECT node,node,0 FROM pending UNION ALL "
      "SELECT up.change,coalesce(node.parent,(SELECT above.id FROM pending JOIN node AS above ON "
      "above.identifier=pending.base_parent WHERE pending.node=up.id AND deleted=1)),depth+1 FROM "
      "up JOIN node ON node.id=up.id WHERE depth<?2) "
      "SELECT change FROM up WHERE id=?1 ORDER BY depth DESC,change DESC");
  statement.bind(node, kDeepest);
  sqlite::StatementUse use(statement);
  std::vector<NodeId> result;
  while (statement.step())
    result.push_back(static_cast<NodeId>(statement.integer(0)));
  return result;
}

NodeId deletedFrom(ReplicaReader& reader, NodeId folder, std::string_view name) {
  const std::optional<Node> parent = reader.node(folder);
  const std::string filename = names::filename(name).value_or(std::string(name));
  if (!parent) return kNoNode;
  for (const Change& change : journal::basedOn(reader.connection(), parent->identifier, filename)) {
    if (change.deleted) return change.node;
  }
  return kNoNode;
}

std::vector<std::string> localIn(ReplicaReader& reader, NodeId folder, std::int64_t limit) {
  sqlite::Statement& statement = reader.connection().cached(
      "WITH RECURSIVE below(id,path) AS (SELECT id,name FROM node WHERE parent=?1 UNION ALL "
      "SELECT node.id,below.path||'/'||node.name FROM node JOIN below ON node.parent=below.id) "
      "SELECT path FROM below JOIN node USING (id) WHERE identifier IS NULL AND NOT EXISTS "
      "(SELECT 1 FROM pending WHERE pending.node=id) LIMIT ?2");
  statement.bind(folder, limit);
  sqlite::StatementUse use(statement);
  std::vector<std::string> result;
  while (statement.step())
    result.emplace_back(statement.text(0));
  return result;
}

std::int64_t localItems(ReplicaReader& reader) {
  return reader.integer(
      "SELECT (SELECT count(*) FROM node INDEXED BY node_unknown WHERE identifier IS NULL AND "
      "parent>0 AND NOT EXISTS (SELECT 1 FROM pending WHERE pending.node=node.id)) + "
      "(SELECT count(*) FROM pending WHERE held=1)");
}

}  // namespace tulo::pending
