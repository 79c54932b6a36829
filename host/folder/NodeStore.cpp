#include "host/folder/NodeStore.h"

#include "host/folder/DiskColumns.h"
#include "host/index/IndexRows.h"

namespace tulo::host {

using sqlite::Statement;
using sqlite::StatementUse;
using sqlite::Text;

namespace {

// No file can have this parent, since "!" is in no ULID.
constexpr std::string_view displacedParent = "!";

#define NODES \
  "SELECT ulid, parent, disk_name, is_folder, inode, birth_ns, size, mtime_ns FROM host_nodes "

std::vector<Node> nodesOf(Statement& statement) {
  const StatementUse use(statement);
  std::vector<Node> nodes;
  while (statement.step()) {
    nodes.push_back({std::string(statement.text(0)),
                     std::string(statement.text(1)),
                     std::string(statement.text(2)),
                     statement.integer(3) != 0,
                     {inodeOf(statement.integer(4)), timeOf(statement.integer(5)),
                      statement.integer(6), timeOf(statement.integer(7))}});
  }
  return nodes;
}

std::optional<Node> onlyNodeOf(Statement& statement) {
  auto nodes = nodesOf(statement);
  if (nodes.empty()) return std::nullopt;
  return std::move(nodes.front());
}

}  // namespace

const std::string_view NodeStore::tables = R"(
CREATE TABLE host_nodes(parent TEXT NOT NULL, disk_name BLOB NOT NULL, ulid TEXT NOT NULL UNIQUE,
                        is_folder INTEGER NOT NULL, inode INTEGER NOT NULL,
                        birth_ns INTEGER NOT NULL, size INTEGER NOT NULL, mtime_ns INTEGER NOT NULL,
                        PRIMARY KEY(parent, disk_name)) WITHOUT ROWID;
CREATE INDEX host_nodes_by_inode ON host_nodes(inode);
)";

std::optional<Node> NodeStore::node(std::string_view ulid) {
  return onlyNodeOf(database_.reading(NODES "WHERE ulid = ?").bind(Text{ulid}));
}

std::optional<Node> NodeStore::child(std::string_view parent, std::string_view diskName) {
  return onlyNodeOf(
      database_.reading(NODES "WHERE parent = ? AND disk_name = ?").bind(Text{parent}, diskName));
}

std::vector<Node> NodeStore::children(std::string_view parent) {
  return nodesOf(database_.reading(NODES "WHERE parent = ?").bind(Text{parent}));
}

std::vector<Node> NodeStore::displaced() {
  return children(displacedParent);
}

std::vector<Node> NodeStore::nodesWithInode(std::uint64_t inode) {
  return nodesOf(database_.reading(NODES "WHERE inode = ?").bind(column(inode)));
}

bool NodeStore::isWithin(std::string_view ulid, std::string_view ancestor) {
  // Bounded, so that even a damaged index with a circle in it gives an answer.
  constexpr int deepest = 100'000;
  std::string current(ulid);
  for (int depth = 0; current != ancestor && depth < deepest; ++depth) {
    const auto above = current == rootUlid ? std::nullopt : node(current);
    if (!above) return false;
    current = above->parent;
  }
  return current == ancestor;
}

void NodeStore::add(const Node& node) {
  database_
      .changing(
          "INSERT INTO host_nodes(ulid, parent, disk_name, is_folder, inode, birth_ns, size, "
          "mtime_ns) VALUES(?,?,?,?,?,?,?,?)")
      .bind(Text{node.ulid}, Text{node.parent}, node.diskName, node.isFolder,
            column(node.fingerprint.inode), column(node.fingerprint.born), node.fingerprint.size,
            column(node.fingerprint.modified))
      .run();
}

void NodeStore::place(std::string_view ulid, std::string_view parent, std::string_view diskName) {
  database_.changing("UPDATE host_nodes SET parent = ?, disk_name = ? WHERE ulid = ?")
      .bind(Text{parent}, diskName, Text{ulid})
      .run();
}

void NodeStore::displace(std::string_view ulid) {
  place(ulid, displacedParent, ulid);
}

void NodeStore::setFingerprint(std::string_view ulid, const Fingerprint& fingerprint) {
  database_
      .changing(
          "UPDATE host_nodes SET inode = ?, birth_ns = ?, size = ?, mtime_ns = ? WHERE ulid = ?")
      .bind(column(fingerprint.inode), column(fingerprint.born), fingerprint.size,
            column(fingerprint.modified), Text{ulid})
      .run();
}

void NodeStore::remove(std::string_view ulid) {
  database_.changing("DELETE FROM host_nodes WHERE ulid = ?").bind(Text{ulid}).run();
}

void NodeStore::removeChildren(std::string_view parent) {
  database_.changing("DELETE FROM host_nodes WHERE parent = ?").bind(Text{parent}).run();
}

}  // namespace tulo::host
