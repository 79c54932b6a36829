#include "service/replica/GatheringLog.h"
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
                     node.metadataVersion, node.size, node.modified, node.nanoseconds,
                     node.capabilities, node.mode, node.pinned, node.kept,
                     static_cast<int>(node.state), node.content);
}

}  // namespace

ReplicaWriter::ReplicaWriter(const std::string& path)
    : database_(path, sqlite::Connection::Mode::create, gatheringVfs()),
      node_(database_.prepare(columns::selectNode() + " WHERE id=?")),
      byIdentifier_(database_.prepare(columns::selectNode() + " WHERE identifier=?")),
      childNamed_(database_.prepare("SELECT id FROM node WHERE parent=? AND name=?")),
      childNodes_(database_.prepare(columns::selectNode() +
                                    " INDEXED BY node_parent WHERE parent=? ORDER BY id")),
      insert_(database_.prepare(insertion(1))),
      insertMany_(database_.prepare(insertion(kManyNodes))),
      update_(database_.prepare(
          "UPDATE node SET parent=?,name=?,filename=?,content_version=?,metadata_version=?,size=?,"
          "modified=?7,nanoseconds=nanoseconds*(modified=?7),capabilities=?,mode=?,kept=?,"
          "detached=NULL WHERE id=?")) {
  database_.execute("PRAGMA synchronous=NORMAL;PRAGMA cache_size=-16384");
}

std::uint64_t ReplicaWriter::nextNumber(std::string_view key, std::uint64_t& next,
                                        std::uint64_t& reserved) {
  if (next == reserved) {
    sqlite::Statement& read = database_.cached("SELECT value FROM meta WHERE key=CAST(? AS TEXT)");
    read.bind(key);
    if (!read.step())
      throw sqlite::DatabaseError(SQLITE_CORRUPT, "replica: no " + std::string(key));
    next = static_cast<std::uint64_t>(read.integer(0));
    read.reset();
    reserved = next + kReservation;
    setMeta(key, static_cast<std::int64_t>(reserved));
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
  return database_.changes() == 1 ? id : kNoNode;
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
    if (database_.changes() == static_cast<std::int64_t>(kManyNodes)) continue;
    for (std::size_t i = done; i < done + kManyNodes; ++i) {
      if (!node(nodes[i].id)) nodes[i].id = kNoNode;
    }
  }
  for (; done < nodes.size(); ++done)
    nodes[done].id = insert(nodes[done]);
}

std::optional<Node> ReplicaWriter::node(NodeId id) {
  sqlite::StatementUse use(node_);
  if (!node_.bind(id).step()) return std::nullopt;
  return columns::nodeFrom(node_);
}

std::optional<Node> ReplicaWriter::nodeFor(std::string_view identifier) {
  sqlite::StatementUse use(byIdentifier_);
  if (!byIdentifier_.bind(identifier).step()) return std::nullopt;
  return columns::nodeFrom(byIdentifier_);
}

std::optional<NodeId> ReplicaWriter::childNamed(NodeId folder, std::string_view name) {
  sqlite::StatementUse use(childNamed_);
  if (!childNamed_.bind(folder, name).step()) return std::nullopt;
  return static_cast<NodeId>(childNamed_.integer(0));
}

std::vector<Node> ReplicaWriter::childNodes(NodeId folder) {
  std::vector<Node> result;
  sqlite::StatementUse use(childNodes_);
  childNodes_.bind(folder);
  while (childNodes_.step())
    result.push_back(columns::nodeFrom(childNodes_));
  return result;
}

void ReplicaWriter::update(const Node& node) {
  update_.bind(parentColumn(node.id, node.parent), node.name, filenameColumn(node),
               node.contentVersion, node.metadataVersion, node.size, node.modified,
               node.capabilities, node.mode, node.kept, node.id);
  update_.run();
}

void ReplicaWriter::detach(NodeId id, std::int64_t now) {
  database_.cached("UPDATE node SET parent=NULL,detached=? WHERE id=?").bind(now, id).run();
}

void ReplicaWriter::detachChildren(NodeId folder, std::int64_t now) {
  database_.cached("UPDATE node SET parent=NULL,detached=? WHERE parent=?").bind(now, folder).run();
}

void ReplicaWriter::setName(NodeId id, const std::string& name, const std::string& filename) {
  database_.cached("UPDATE node SET name=?,filename=? WHERE id=?")
      .bind(name, filename == name ? std::nullopt : std::optional<std::string_view>(filename), id)
      .run();
}

void ReplicaWriter::parkName(NodeId id) {
  // No shown name has a NUL in it.
  const std::string parked = std::string(1, '\0') + std::to_string(id.number());
  database_.cached("UPDATE node SET name=? WHERE id=?").bind(parked, id).run();
}

NodeId ReplicaWriter::renumber(NodeId id) {
  const NodeId fresh(nextNumber("next_node", nextNode_, reservedNodes_));
  database_.cached("UPDATE node SET id=? WHERE id=?").bind(fresh, id).run();
  for (const char* table : {"content", "pending", "link", "local_time"}) {
    database_.cached(std::string("UPDATE ") + table + " SET node=? WHERE node=?")
        .bind(fresh, id)
        .run();
  }
  return fresh;
}

void ReplicaWriter::setListed(NodeId folder, std::uint64_t generation, std::string_view digest) {
  database_.cached("UPDATE node SET listed=?,digest=? WHERE id=?")
      .bind(generation, digest, folder)
      .run();
}

void ReplicaWriter::setListedGeneration(NodeId folder, std::uint64_t generation) {
  database_.cached("UPDATE node SET listed=? WHERE id=? AND listed>0")
      .bind(generation, folder)
      .run();
}

void ReplicaWriter::setModified(NodeId id, std::int64_t seconds, std::int64_t nanoseconds) {
  database_.cached("UPDATE node SET modified=?,nanoseconds=? WHERE id=?")
      .bind(seconds, nanoseconds, id)
      .run();
}

void ReplicaWriter::setError(NodeId id, std::string_view error) {
  database_.cached("UPDATE node SET error=?1 WHERE id=?2 AND error IS NOT ?1")
      .bind(error.empty() ? std::nullopt : std::optional<std::string_view>(error), id)
      .run();
}

void ReplicaWriter::setLastUsed(NodeId id, std::int64_t when) {
  database_.cached("UPDATE node SET last_used=? WHERE id=?").bind(when, id).run();
}

void ReplicaWriter::setPinned(NodeId id, bool pinned) {
  database_.cached("UPDATE node SET pinned=? WHERE id=?").bind(pinned, id).run();
}

void ReplicaWriter::setKept(NodeId id, bool kept) {
  database_.cached("UPDATE node SET kept=? WHERE id=?").bind(kept, id).run();
}

void ReplicaWriter::setKeptBelow(NodeId folder, bool kept) {
  // A pinned folder keeps what is under it whatever becomes of the folders above.
  database_
      .cached(
          "WITH RECURSIVE below(id) AS (SELECT id FROM node WHERE parent=?1 AND pinned=0 UNION "
          "ALL SELECT node.id FROM node JOIN below ON node.parent=below.id WHERE pinned=0) "
          "UPDATE node SET kept=?2 WHERE id IN below")
      .bind(folder, kept)
      .run();
}

void ReplicaWriter::remove(NodeId id) {
  database_.cached("UPDATE content SET used=0 WHERE node=?").bind(id).run();
  for (const char* table : {"pending", "link", "local_time"}) {
    database_.cached(std::string("DELETE FROM ") + table + " WHERE node=?").bind(id).run();
  }
  database_.cached("DELETE FROM node WHERE id=?").bind(id).run();
}

std::int64_t ReplicaWriter::nextSequence() {
  if (lastSequence_ == 0) {
    lastSequence_ = database_.integer("SELECT coalesce(max(sequence),0) FROM pending");
  }
  return ++lastSequence_;
}

ContentId ReplicaWriter::nextContent() {
  return ContentId(nextNumber("next_content", nextContent_, reservedContents_));
}

void ReplicaWriter::addContent(ContentId content, NodeId node, bool used) {
  database_.cached("INSERT INTO content (id,node,used) VALUES (?,?,?)")
      .bind(content, node, used)
      .run();
}

ContentId ReplicaWriter::reserveContent(NodeId node) {
  const ContentId content = nextContent();
  addContent(content, node, false);
  return content;
}

void ReplicaWriter::skipContents(ContentId first) {
  nextContent_ = reservedContents_ = 0;
  database_.cached("UPDATE meta SET value=max(value,?) WHERE key='next_content'").bind(first).run();
}

void ReplicaWriter::adoptContent(NodeId node, ContentId content, std::int64_t blocks) {
  database_.cached("UPDATE content SET used=0 WHERE node=? AND id<>?").bind(node, content).run();
  database_.cached("UPDATE content SET used=1,blocks=? WHERE id=?").bind(blocks, content).run();
  database_.cached("UPDATE node SET state=1,content=?,blocks=?,error=NULL WHERE id=?")
      .bind(content, blocks, node)
      .run();
}

void ReplicaWriter::dropContent(NodeId node) {
  database_.cached("UPDATE content SET used=0 WHERE node=?").bind(node).run();
  database_.cached("UPDATE node SET state=0,content=0,blocks=0 WHERE id=?").bind(node).run();
}

void ReplicaWriter::setContentDurable(ContentId content) {
  database_.cached("UPDATE content SET durable=1 WHERE id=?").bind(content).run();
}

std::optional<std::int64_t> ReplicaWriter::removeContent(ContentId content) {
  sqlite::Statement& statement =
      database_.cached("DELETE FROM content WHERE id=? AND used=0 RETURNING blocks");
  sqlite::StatementUse use(statement);
  std::optional<std::int64_t> blocks;
  statement.bind(content);
  while (statement.step())
    blocks = statement.integer(0);
  return blocks;
}

void ReplicaWriter::setMeta(std::string_view key, std::int64_t value) {
  database_.cached("INSERT OR REPLACE INTO meta VALUES (CAST(? AS TEXT),?)").bind(key, value).run();
}

void ReplicaWriter::setMeta(std::string_view key, std::string_view value) {
  database_.cached("INSERT OR REPLACE INTO meta VALUES (CAST(? AS TEXT),?)").bind(key, value).run();
}

void ReplicaWriter::removeMeta(std::string_view key) {
  database_.cached("DELETE FROM meta WHERE key=CAST(? AS TEXT)").bind(key).run();
}

}  // namespace tulo
