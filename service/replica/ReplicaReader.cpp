#include <algorithm>

#include "service/replica/GatheringLog.h"
#include "service/replica/Replica.h"
#include "service/replica/ReplicaColumns.h"

namespace tulo {

ReplicaReader::ReplicaReader(const std::string& path)
    : ReplicaReader(std::make_unique<sqlite::Connection>(path, sqlite::Connection::Mode::queryOnly,
                                                         gatheringVfs())) {
  database_->execute("PRAGMA cache_size=-2048");
}

ReplicaReader::ReplicaReader(std::unique_ptr<sqlite::Connection> database)
    : database_(std::move(database)),
      entry_(database_->prepare(columns::selectEntry() + " WHERE id=? AND parent IS NOT NULL")),
      node_(database_->prepare(columns::selectNode() + " WHERE id=?")),
      open_(database_->prepare("SELECT kind,state,parent,content,size FROM node WHERE id=?")),
      byIdentifier_(database_->prepare(columns::selectNode() + " WHERE identifier=?")),
      folder_(database_->prepare("SELECT listed FROM node WHERE id=? AND parent IS NOT NULL")),
      child_(database_->prepare(columns::selectEntry() + " WHERE parent=? AND name=?")),
      children_(database_->prepare(columns::selectEntry() +
                                   " INDEXED BY node_parent WHERE parent=? AND id>? ORDER BY id")),
      childNodes_(database_->prepare(columns::selectNode() +
                                     " INDEXED BY node_parent WHERE parent=? ORDER BY id")),
      childNamed_(database_->prepare("SELECT id FROM node WHERE parent=? AND name=?")) {}

std::optional<Entry> ReplicaReader::entry(NodeId id) {
  sqlite::StatementUse use(entry_);
  if (!entry_.bind(id).step()) return std::nullopt;
  return columns::entryFrom(entry_);
}

std::optional<Node> ReplicaReader::node(NodeId id) {
  sqlite::StatementUse use(node_);
  if (!node_.bind(id).step()) return std::nullopt;
  return columns::nodeFrom(node_);
}

std::optional<OpenLookup> ReplicaReader::openLookup(NodeId id) {
  sqlite::StatementUse use(open_);
  if (!open_.bind(id).step()) return std::nullopt;
  return OpenLookup{static_cast<NodeKind>(open_.integer(0)),
                    static_cast<ContentState>(open_.integer(1)),
                    static_cast<NodeId>(open_.integer(2)), static_cast<ContentId>(open_.integer(3)),
                    open_.integer(4)};
}

std::optional<Node> ReplicaReader::nodeFor(std::string_view identifier) {
  sqlite::StatementUse use(byIdentifier_);
  if (!byIdentifier_.bind(identifier).step()) return std::nullopt;
  return columns::nodeFrom(byIdentifier_);
}

std::optional<std::uint64_t> ReplicaReader::listed(NodeId folder) {
  sqlite::StatementUse use(folder_);
  if (!folder_.bind(folder).step()) return std::nullopt;
  return static_cast<std::uint64_t>(folder_.integer(0));
}

NameLookup ReplicaReader::lookup(NodeId folder, std::string_view name) {
  NameLookup result;
  const std::optional<std::uint64_t> generation = listed(folder);
  if (!generation) return result;
  result.folderExists = true;
  result.listed = *generation;
  sqlite::StatementUse use(child_);
  if (child_.bind(folder, name).step()) result.entry = columns::entryFrom(child_);
  return result;
}

void ReplicaReader::children(NodeId folder, NodeId after, const EntryVisitor& visitor) {
  sqlite::StatementUse use(children_);
  children_.bind(folder, after);
  while (children_.step()) {
    if (!visitor(columns::entryFrom(children_), children_.text(columns::kEntryName))) return;
  }
}

std::vector<Node> ReplicaReader::childNodes(NodeId folder) {
  std::vector<Node> result;
  sqlite::StatementUse use(childNodes_);
  childNodes_.bind(folder);
  while (childNodes_.step())
    result.push_back(columns::nodeFrom(childNodes_));
  return result;
}

std::vector<std::string> ReplicaReader::path(NodeId id) {
  constexpr std::size_t kDeepest = 4096;
  std::vector<std::string> result;
  while (id != kRootNode && id != kNoNode && result.size() < kDeepest) {
    const std::optional<Node> found = node(id);
    if (!found || found->parent == kNoNode) return {};
    result.push_back(found->name);
    id = found->parent;
  }
  std::reverse(result.begin(), result.end());
  return result;
}

std::optional<NodeId> ReplicaReader::childNamed(NodeId folder, std::string_view name) {
  sqlite::StatementUse use(childNamed_);
  if (!childNamed_.bind(folder, name).step()) return std::nullopt;
  return static_cast<NodeId>(childNamed_.integer(0));
}

bool ReplicaReader::hasAtLeast(NodeId folder, std::int64_t count) {
  sqlite::Statement& statement =
      database_->cached("SELECT count(*) FROM (SELECT 1 FROM node WHERE parent=? LIMIT ?)");
  sqlite::StatementUse use(statement);
  return statement.bind(folder, count).step() && statement.integer(0) >= count;
}

std::vector<Node> ReplicaReader::failedNodes(std::size_t limit) {
  std::vector<Node> result;
  sqlite::Statement statement =
      database_->prepare(columns::selectNode() +
                         " INDEXED BY node_failed WHERE error IS NOT NULL AND parent "
                         "IS NOT NULL LIMIT ?");
  statement.bind(static_cast<std::int64_t>(limit));
  while (statement.step())
    result.push_back(columns::nodeFrom(statement));
  return result;
}

}  // namespace tulo
