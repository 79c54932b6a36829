#include "service/replica/ReplicaWriter.h"

#include <optional>

#include "service/replica/GatheringLog.h"
#include "service/replica/Numbers.h"
#include "service/replica/Sql.h"

namespace tulo {

namespace {

std::optional<std::string_view> orNull(std::string_view text) {
  return text.empty() ? std::nullopt : std::optional<std::string_view>(text);
}

std::optional<std::string_view> filenameColumn(const Node& node) {
  return node.filename == node.name ? std::nullopt : std::optional<std::string_view>(node.filename);
}

constexpr int kNodeColumns = 17;

std::string insertion(std::size_t rows) {
  const std::string row = "(?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?)";
  std::string sql =
      "INSERT OR IGNORE INTO node (id,parent,name,filename,kind,identifier,content_version,"
      "metadata_version,size,modified,nanoseconds,capabilities,mode,pinned,kept,state,content) "
      "VALUES " +
      row;
  for (std::size_t i = 1; i < rows; ++i)
    sql += ',' + row;
  return sql;
}

// A node outside the tree has no parent at all; the root's is 0.
std::optional<NodeId> parentColumn(NodeId id, NodeId parent) {
  if (parent == kNoNode && id != kRootNode) return std::nullopt;
  return parent;
}

void bindNode(sqlite::Statement& statement, int before, NodeId id, const Node& node) {
  statement.bindFrom(before, id, parentColumn(id, node.parent), node.name, filenameColumn(node),
                     static_cast<int>(node.kind), orNull(node.identifier), node.contentVersion,
                     node.metadataVersion, node.size, node.modified.whole, node.modified.beyond,
                     node.capabilities, node.mode, node.pinned, node.kept,
                     static_cast<int>(node.state), node.content);
}

NodeId numberFor(const Node& node, Numbers& numbers) {
  return node.id != kNoNode ? node.id : numbers.node();
}

}  // namespace

struct ReplicaWriter::Statements {
  explicit Statements(sqlite::Connection& database)
      : insert(database.prepare(insertion(1))),
        insertMany(database.prepare(insertion(kManyNodes))),
        update(database.prepare(
            "UPDATE node SET parent=?,name=?,filename=?,content_version=?,metadata_version=?,"
            "size=?,modified=?7,nanoseconds=nanoseconds*(modified=?7),capabilities=?,mode=?,"
            "kept=?,detached=NULL WHERE id=?")) {}

  sqlite::Statement insert;
  sqlite::Statement insertMany;
  sqlite::Statement update;
};

ReplicaWriter::ReplicaWriter(const std::string& path)
    : ReplicaReader(std::make_unique<sqlite::Connection>(path, sqlite::Connection::Mode::create,
                                                         gatheringVfs())),
      numbers_(std::make_unique<Numbers>(*this)),
      statements_(std::make_unique<Statements>(sqlOf(*this))) {
  sqlOf(*this).execute("PRAGMA synchronous=NORMAL;PRAGMA cache_size=-16384");
}

ReplicaWriter::~ReplicaWriter() = default;

NodeId ReplicaWriter::insert(const Node& node) {
  const NodeId id = numberFor(node, *numbers_);
  statements_->insert.reset();
  bindNode(statements_->insert, 0, id, node);
  statements_->insert.run();
  return sqlOf(*this).changes() == 1 ? id : kNoNode;
}

void ReplicaWriter::insertMany(std::vector<Node>& nodes) {
  std::size_t done = 0;
  for (; done + kManyNodes <= nodes.size(); done += kManyNodes) {
    statements_->insertMany.reset();
    for (std::size_t i = 0; i < kManyNodes; ++i) {
      Node& node = nodes[done + i];
      node.id = numberFor(node, *numbers_);
      bindNode(statements_->insertMany, static_cast<int>(i) * kNodeColumns, node.id, node);
    }
    statements_->insertMany.run();
    if (sqlOf(*this).changes() == static_cast<std::int64_t>(kManyNodes)) continue;
    for (std::size_t i = done; i < done + kManyNodes; ++i) {
      if (!node(nodes[i].id)) nodes[i].id = kNoNode;
    }
  }
  for (; done < nodes.size(); ++done)
    nodes[done].id = insert(nodes[done]);
}

void ReplicaWriter::update(const Node& node) {
  statements_->update.bind(parentColumn(node.id, node.parent), node.name, filenameColumn(node),
                           node.contentVersion, node.metadataVersion, node.size,
                           node.modified.whole, node.capabilities, node.mode, node.kept, node.id);
  statements_->update.run();
}

void ReplicaWriter::detach(NodeId id, WallSeconds now) {
  sqlOf(*this).cached("UPDATE node SET parent=NULL,detached=? WHERE id=?").bind(now, id).run();
}

void ReplicaWriter::detachChildren(NodeId folder, WallSeconds now) {
  sqlOf(*this)
      .cached("UPDATE node SET parent=NULL,detached=? WHERE parent=?")
      .bind(now, folder)
      .run();
}

void ReplicaWriter::setName(NodeId id, const std::string& name, const std::string& filename) {
  sqlOf(*this)
      .cached("UPDATE node SET name=?,filename=? WHERE id=?")
      .bind(name, filename == name ? std::nullopt : std::optional<std::string_view>(filename), id)
      .run();
}

void ReplicaWriter::parkName(NodeId id) {
  // No shown name has a NUL in it.
  const std::string parked = std::string(1, '\0') + std::to_string(id.number());
  sqlOf(*this).cached("UPDATE node SET name=? WHERE id=?").bind(parked, id).run();
}

NodeId ReplicaWriter::renumber(NodeId id) {
  const NodeId fresh(numbers_->node());
  sqlOf(*this).cached("UPDATE node SET id=? WHERE id=?").bind(fresh, id).run();
  sqlOf(*this).cached("UPDATE node SET parent=? WHERE parent=?").bind(fresh, id).run();
  for (const char* table : {"content", "pending", "link", "local_time"}) {
    sqlOf(*this)
        .cached(std::string("UPDATE ") + table + " SET node=? WHERE node=?")
        .bind(fresh, id)
        .run();
  }
  return fresh;
}

void ReplicaWriter::setListed(NodeId folder, std::uint64_t generation, std::string_view digest) {
  sqlOf(*this)
      .cached("UPDATE node SET listed=?,digest=? WHERE id=?")
      .bind(generation, digest, folder)
      .run();
}

void ReplicaWriter::setListedGeneration(NodeId folder, std::uint64_t generation) {
  sqlOf(*this)
      .cached("UPDATE node SET listed=? WHERE id=? AND listed>0")
      .bind(generation, folder)
      .run();
}

void ReplicaWriter::setModified(NodeId id, const FileTime& modified) {
  sqlOf(*this)
      .cached("UPDATE node SET modified=?,nanoseconds=? WHERE id=?")
      .bind(modified.whole, modified.beyond, id)
      .run();
}

void ReplicaWriter::setError(NodeId id, std::string_view error) {
  sqlOf(*this)
      .cached("UPDATE node SET error=?1 WHERE id=?2 AND error IS NOT ?1")
      .bind(orNull(error), id)
      .run();
}

void ReplicaWriter::setLastUsed(NodeId id, WallSeconds when) {
  sqlOf(*this).cached("UPDATE node SET last_used=? WHERE id=?").bind(when, id).run();
}

void ReplicaWriter::setIdentifier(NodeId id, std::string_view identifier) {
  sqlOf(*this).cached("UPDATE node SET identifier=? WHERE id=?").bind(orNull(identifier), id).run();
}

void ReplicaWriter::clearIdentifier(NodeId id) {
  setIdentifier(id, {});
}

void ReplicaWriter::clearItem(NodeId id) {
  sqlOf(*this).cached("UPDATE node SET identifier=NULL,digest=NULL WHERE id=?").bind(id).run();
}

void ReplicaWriter::setContentVersion(NodeId id, std::string_view version) {
  sqlOf(*this).cached("UPDATE node SET content_version=? WHERE id=?").bind(version, id).run();
}

void ReplicaWriter::setVersions(NodeId id, std::string_view contentVersion,
                                std::string_view metadataVersion) {
  sqlOf(*this)
      .cached("UPDATE node SET content_version=?,metadata_version=? WHERE id=?")
      .bind(contentVersion, metadataVersion, id)
      .run();
}

void ReplicaWriter::setMode(NodeId id, int mode) {
  sqlOf(*this).cached("UPDATE node SET mode=? WHERE id=?").bind(mode, id).run();
}

void ReplicaWriter::setWritten(NodeId id, std::int64_t size, std::int64_t blocks,
                               const FileTime& modified) {
  sqlOf(*this)
      .cached("UPDATE node SET size=?,blocks=?,modified=?,nanoseconds=? WHERE id=?")
      .bind(size, blocks, modified.whole, modified.beyond, id)
      .run();
}

void ReplicaWriter::touch(NodeId id, const FileTime& modified) {
  sqlOf(*this)
      .cached(
          "UPDATE node SET modified=?1,nanoseconds=?2 WHERE id=?3 AND NOT (modified=?1 AND "
          "nanoseconds=?2)")
      .bind(modified.whole, modified.beyond, id)
      .run();
}

void ReplicaWriter::takeOut(NodeId id) {
  sqlOf(*this).cached("UPDATE node SET parent=NULL,error=NULL WHERE id=?").bind(id).run();
}

void ReplicaWriter::remove(NodeId id) {
  sqlOf(*this).cached("UPDATE content SET used=0 WHERE node=?").bind(id).run();
  for (const char* table : {"pending", "link", "local_time"}) {
    sqlOf(*this).cached(std::string("DELETE FROM ") + table + " WHERE node=?").bind(id).run();
  }
  sqlOf(*this).cached("DELETE FROM node WHERE id=?").bind(id).run();
}

}  // namespace tulo
