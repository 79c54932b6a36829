#include "service/replica/GatheringLog.h"
#include "service/replica/Meta.h"
#include "service/replica/Replica.h"
#include "service/replica/ReplicaColumns.h"

namespace tulo {

namespace {

// Numbers are reserved in blocks: a crash wastes some, and none is ever given out twice.
constexpr std::uint64_t kReservation = 4096;

std::optional<std::string_view> orNull(const std::string& text) {
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

}  // namespace

ReplicaWriter::ReplicaWriter(const std::string& path)
    : ReplicaReader(std::make_unique<sqlite::Connection>(path, sqlite::Connection::Mode::create,
                                                         gatheringVfs())),
      insert_(connection().prepare(insertion(1))),
      insertMany_(connection().prepare(insertion(kManyNodes))),
      update_(connection().prepare(
          "UPDATE node SET parent=?,name=?,filename=?,content_version=?,metadata_version=?,size=?,"
          "modified=?7,nanoseconds=nanoseconds*(modified=?7),capabilities=?,mode=?,kept=?,"
          "detached=NULL WHERE id=?")) {
  connection().execute("PRAGMA synchronous=NORMAL;PRAGMA cache_size=-16384");
}

std::uint64_t ReplicaWriter::nextNumber(std::string_view key, std::uint64_t& next,
                                        std::uint64_t& reserved) {
  if (next == reserved) {
    sqlite::Statement& read =
        connection().cached("SELECT value FROM meta WHERE key=CAST(? AS TEXT)");
    read.bind(key);
    if (!read.step())
      throw sqlite::DatabaseError(SQLITE_CORRUPT, "replica: no " + std::string(key));
    next = static_cast<std::uint64_t>(read.integer(0));
    read.reset();
    reserved = next + kReservation;
    meta::set(*this, key, static_cast<std::int64_t>(reserved));
  }
  return next++;
}

void ReplicaWriter::forgetReservations() {
  nextNode_ = reservedNodes_ = 0;
  nextContent_ = reservedContents_ = 0;
}

NodeId ReplicaWriter::numberFor(const Node& node) {
  return node.id != kNoNode ? node.id : NodeId(nextNumber("next_node", nextNode_, reservedNodes_));
}

NodeId ReplicaWriter::insert(const Node& node) {
  const NodeId id = numberFor(node);
  insert_.reset();
  bindNode(insert_, 0, id, node);
  insert_.run();
  return connection().changes() == 1 ? id : kNoNode;
}

void ReplicaWriter::insertMany(std::vector<Node>& nodes) {
  std::size_t done = 0;
  for (; done + kManyNodes <= nodes.size(); done += kManyNodes) {
    insertMany_.reset();
    for (std::size_t i = 0; i < kManyNodes; ++i) {
      Node& node = nodes[done + i];
      node.id = numberFor(node);
      bindNode(insertMany_, static_cast<int>(i) * kNodeColumns, node.id, node);
    }
    insertMany_.run();
    if (connection().changes() == static_cast<std::int64_t>(kManyNodes)) continue;
    for (std::size_t i = done; i < done + kManyNodes; ++i) {
      if (!node(nodes[i].id)) nodes[i].id = kNoNode;
    }
  }
  for (; done < nodes.size(); ++done)
    nodes[done].id = insert(nodes[done]);
}

void ReplicaWriter::update(const Node& node) {
  update_.bind(parentColumn(node.id, node.parent), node.name, filenameColumn(node),
               node.contentVersion, node.metadataVersion, node.size, node.modified.whole,
               node.capabilities, node.mode, node.kept, node.id);
  update_.run();
}

void ReplicaWriter::detach(NodeId id, WallSeconds now) {
  connection().cached("UPDATE node SET parent=NULL,detached=? WHERE id=?").bind(now, id).run();
}

void ReplicaWriter::detachChildren(NodeId folder, WallSeconds now) {
  connection()
      .cached("UPDATE node SET parent=NULL,detached=? WHERE parent=?")
      .bind(now, folder)
      .run();
}

void ReplicaWriter::setName(NodeId id, const std::string& name, const std::string& filename) {
  connection()
      .cached("UPDATE node SET name=?,filename=? WHERE id=?")
      .bind(name, filename == name ? std::nullopt : std::optional<std::string_view>(filename), id)
      .run();
}

void ReplicaWriter::parkName(NodeId id) {
  // No shown name has a NUL in it.
  const std::string parked = std::string(1, '\0') + std::to_string(id.number());
  connection().cached("UPDATE node SET name=? WHERE id=?").bind(parked, id).run();
}

NodeId ReplicaWriter::renumber(NodeId id) {
  const NodeId fresh(nextNumber("next_node", nextNode_, reservedNodes_));
  connection().cached("UPDATE node SET id=? WHERE id=?").bind(fresh, id).run();
  for (const char* table : {"content", "pending", "link", "local_time"}) {
    connection()
        .cached(std::string("UPDATE ") + table + " SET node=? WHERE node=?")
        .bind(fresh, id)
        .run();
  }
  return fresh;
}

void ReplicaWriter::setListed(NodeId folder, std::uint64_t generation, std::string_view digest) {
  connection()
      .cached("UPDATE node SET listed=?,digest=? WHERE id=?")
      .bind(generation, digest, folder)
      .run();
}

void ReplicaWriter::setListedGeneration(NodeId folder, std::uint64_t generation) {
  connection()
      .cached("UPDATE node SET listed=? WHERE id=? AND listed>0")
      .bind(generation, folder)
      .run();
}

void ReplicaWriter::setModified(NodeId id, const FileTime& modified) {
  connection()
      .cached("UPDATE node SET modified=?,nanoseconds=? WHERE id=?")
      .bind(modified.whole, modified.beyond, id)
      .run();
}

void ReplicaWriter::setError(NodeId id, std::string_view error) {
  connection()
      .cached("UPDATE node SET error=?1 WHERE id=?2 AND error IS NOT ?1")
      .bind(error.empty() ? std::nullopt : std::optional<std::string_view>(error), id)
      .run();
}

void ReplicaWriter::setLastUsed(NodeId id, WallSeconds when) {
  connection().cached("UPDATE node SET last_used=? WHERE id=?").bind(when, id).run();
}

void ReplicaWriter::setPinned(NodeId id, bool pinned) {
  connection().cached("UPDATE node SET pinned=? WHERE id=?").bind(pinned, id).run();
}

void ReplicaWriter::setKept(NodeId id, bool kept) {
  connection().cached("UPDATE node SET kept=? WHERE id=?").bind(kept, id).run();
}

void ReplicaWriter::setIdentifier(NodeId id, std::string_view identifier) {
  connection()
      .cached("UPDATE node SET identifier=? WHERE id=?")
      .bind(identifier.empty() ? std::nullopt : std::optional<std::string_view>(identifier), id)
      .run();
}

void ReplicaWriter::clearItem(NodeId id) {
  connection().cached("UPDATE node SET identifier=NULL,digest=NULL WHERE id=?").bind(id).run();
}

void ReplicaWriter::setContentVersion(NodeId id, std::string_view version) {
  connection().cached("UPDATE node SET content_version=? WHERE id=?").bind(version, id).run();
}

void ReplicaWriter::setVersions(NodeId id, std::string_view contentVersion,
                                std::string_view metadataVersion) {
  connection()
      .cached("UPDATE node SET content_version=?,metadata_version=? WHERE id=?")
      .bind(contentVersion, metadataVersion, id)
      .run();
}

void ReplicaWriter::setMode(NodeId id, int mode) {
  connection().cached("UPDATE node SET mode=? WHERE id=?").bind(mode, id).run();
}

void ReplicaWriter::setWritten(NodeId id, std::int64_t size, std::int64_t blocks,
                               const FileTime& modified) {
  connection()
      .cached("UPDATE node SET size=?,blocks=?,modified=?,nanoseconds=? WHERE id=?")
      .bind(size, blocks, modified.whole, modified.beyond, id)
      .run();
}

void ReplicaWriter::touch(NodeId id, const FileTime& modified) {
  connection()
      .cached(
          "UPDATE node SET modified=?1,nanoseconds=?2 WHERE id=?3 AND NOT (modified=?1 AND "
          "nanoseconds=?2)")
      .bind(modified.whole, modified.beyond, id)
      .run();
}

void ReplicaWriter::takeOut(NodeId id) {
  connection().cached("UPDATE node SET parent=NULL,error=NULL WHERE id=?").bind(id).run();
}

void ReplicaWriter::remove(NodeId id) {
  connection().cached("UPDATE content SET used=0 WHERE node=?").bind(id).run();
  for (const char* table : {"pending", "link", "local_time"}) {
    connection().cached(std::string("DELETE FROM ") + table + " WHERE node=?").bind(id).run();
  }
  connection().cached("DELETE FROM node WHERE id=?").bind(id).run();
}

std::int64_t ReplicaWriter::nextSequence() {
  if (lastSequence_ == 0) {
    lastSequence_ = connection().integer("SELECT coalesce(max(sequence),0) FROM pending");
  }
  return ++lastSequence_;
}

ContentId ReplicaWriter::nextContent() {
  return ContentId(nextNumber("next_content", nextContent_, reservedContents_));
}

void ReplicaWriter::skipContents(ContentId first) {
  nextContent_ = reservedContents_ = 0;
  connection()
      .cached("UPDATE meta SET value=max(value,?) WHERE key='next_content'")
      .bind(first)
      .run();
}

}  // namespace tulo
