#include "service/replica/ReplicaReader.h"

#include <algorithm>

#include "service/replica/Ancestors.h"
#include "service/replica/GatheringLog.h"
#include "service/replica/ReplicaColumns.h"
#include "service/replica/Sql.h"

namespace tulo {

struct ReplicaReader::Statements {
  explicit Statements(sqlite::Connection& database)
      : entry(database.prepare(columns::selectEntry() + " WHERE id=? AND parent IS NOT NULL")),
        node(database.prepare(columns::selectNode() + " WHERE id=?")),
        open(database.prepare("SELECT kind,state,parent,content,size FROM node WHERE id=?")),
        byIdentifier(database.prepare(columns::selectNode() + " WHERE identifier=?")),
        folder(database.prepare("SELECT listed FROM node WHERE id=? AND parent IS NOT NULL")),
        child(database.prepare(columns::selectEntry() + " WHERE parent=? AND name=?")),
        children(database.prepare(columns::selectEntry() +
                                  " INDEXED BY node_parent WHERE parent=? AND id>? ORDER BY id")),
        childNodes(database.prepare(columns::selectNode() +
                                    " INDEXED BY node_parent WHERE parent=? ORDER BY id")),
        childNamed(database.prepare("SELECT id FROM node WHERE parent=? AND name=?")) {}

  sqlite::Statement entry;
  sqlite::Statement node;
  sqlite::Statement open;
  sqlite::Statement byIdentifier;
  sqlite::Statement folder;
  sqlite::Statement child;
  sqlite::Statement children;
  sqlite::Statement childNodes;
  sqlite::Statement childNamed;
};

sqlite::Connection& sqlOf(ReplicaReader& session) {
  return *session.database_;
}

ReplicaReader::ReplicaReader(const std::string& path)
    : ReplicaReader(std::make_unique<sqlite::Connection>(path, sqlite::Connection::Mode::queryOnly,
                                                         gatheringVfs())) {
  database_->execute("PRAGMA cache_size=-2048");
}

ReplicaReader::ReplicaReader(std::unique_ptr<sqlite::Connection> database)
    : database_(std::move(database)), statements_(std::make_unique<Statements>(*database_)) {}

ReplicaReader::~ReplicaReader() = default;

std::optional<Entry> ReplicaReader::entry(NodeId id) {
  sqlite::Statement& row = statements_->entry;
  sqlite::StatementUse use(row);
  if (!row.bind(id).step()) return std::nullopt;
  return columns::entryFrom(row);
}

std::optional<Node> ReplicaReader::node(NodeId id) {
  sqlite::Statement& row = statements_->node;
  sqlite::StatementUse use(row);
  if (!row.bind(id).step()) return std::nullopt;
  return columns::nodeFrom(row);
}

std::optional<OpenLookup> ReplicaReader::openLookup(NodeId id) {
  sqlite::Statement& row = statements_->open;
  sqlite::StatementUse use(row);
  if (!row.bind(id).step()) return std::nullopt;
  return OpenLookup{static_cast<NodeKind>(row.integer(0)),
                    static_cast<ContentState>(row.integer(1)), static_cast<NodeId>(row.integer(2)),
                    static_cast<ContentId>(row.integer(3)), row.integer(4)};
}

std::optional<Node> ReplicaReader::nodeFor(std::string_view identifier) {
  sqlite::Statement& row = statements_->byIdentifier;
  sqlite::StatementUse use(row);
  if (!row.bind(identifier).step()) return std::nullopt;
  return columns::nodeFrom(row);
}

std::optional<std::uint64_t> ReplicaReader::listed(NodeId folder) {
  sqlite::Statement& row = statements_->folder;
  sqlite::StatementUse use(row);
  if (!row.bind(folder).step()) return std::nullopt;
  return static_cast<std::uint64_t>(row.integer(0));
}

NameLookup ReplicaReader::lookup(NodeId folder, std::string_view name) {
  NameLookup result;
  const std::optional<std::uint64_t> generation = listed(folder);
  if (!generation) return result;
  result.folderExists = true;
  result.listed = *generation;
  sqlite::Statement& row = statements_->child;
  sqlite::StatementUse use(row);
  if (row.bind(folder, name).step()) result.entry = columns::entryFrom(row);
  return result;
}

void ReplicaReader::children(NodeId folder, NodeId after, const EntryVisitor& visitor) {
  sqlite::Statement& row = statements_->children;
  sqlite::StatementUse use(row);
  row.bind(folder, after);
  while (row.step()) {
    if (!visitor(columns::entryFrom(row), row.text(columns::kEntryName))) return;
  }
}

std::vector<Node> ReplicaReader::childNodes(NodeId folder) {
  std::vector<Node> result;
  sqlite::Statement& row = statements_->childNodes;
  sqlite::StatementUse use(row);
  row.bind(folder);
  while (row.step())
    result.push_back(columns::nodeFrom(row));
  return result;
}

std::vector<std::string> ReplicaReader::path(NodeId id) {
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
  sqlite::Statement& row = statements_->childNamed;
  sqlite::StatementUse use(row);
  if (!row.bind(folder, name).step()) return std::nullopt;
  return static_cast<NodeId>(row.integer(0));
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
