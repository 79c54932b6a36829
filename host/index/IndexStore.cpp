#include "host/index/IndexStore.h"

#include "host/base/HostError.h"

namespace tulo::host {

namespace {

constexpr const char* schemaVersion = "1";

// Rows keep SQLite's own row numbers: a listing that goes from an index to its rows is then cheaper
// than with the text key, and rows of one folder lie near each other.
constexpr const char* schema = R"(
BEGIN IMMEDIATE;
CREATE TABLE folders(ulid TEXT PRIMARY KEY NOT NULL, name TEXT NOT NULL, parent_ulid TEXT);
CREATE INDEX folders_by_parent ON folders(parent_ulid, name);
CREATE TABLE items(ulid TEXT PRIMARY KEY NOT NULL, name TEXT NOT NULL, folder_ulid TEXT,
                   size INTEGER NOT NULL, mtime_unix INTEGER NOT NULL,
                   version_number INTEGER NOT NULL, locked_by_user_id INTEGER);
CREATE INDEX items_by_folder ON items(folder_ulid, name);
CREATE TABLE host_nodes(parent TEXT NOT NULL, disk_name BLOB NOT NULL, ulid TEXT NOT NULL UNIQUE,
                        is_folder INTEGER NOT NULL, inode INTEGER NOT NULL,
                        birth_ns INTEGER NOT NULL, size INTEGER NOT NULL, mtime_ns INTEGER NOT NULL,
                        PRIMARY KEY(parent, disk_name)) WITHOUT ROWID;
CREATE INDEX host_nodes_by_inode ON host_nodes(inode);
CREATE TABLE host_intents(inode INTEGER PRIMARY KEY, birth_ns INTEGER NOT NULL, ulid TEXT NOT NULL,
                          parent TEXT NOT NULL, disk_name BLOB NOT NULL, name TEXT NOT NULL);
CREATE TABLE host_state(key TEXT PRIMARY KEY NOT NULL, value TEXT NOT NULL) WITHOUT ROWID;
INSERT INTO host_state VALUES('schema', '1');
COMMIT;
)";

// No file can have this parent, since "!" is in no ULID.
constexpr std::string_view displacedParent = "!";

#define NODE_COLUMNS "ulid, parent, disk_name, is_folder, inode, birth_ns, size, mtime_ns"

// The folder and all folders below it.
#define FOLDERS_WITHIN                                                             \
  "WITH RECURSIVE within(id) AS (SELECT ?1 UNION SELECT n.ulid FROM host_nodes n " \
  "JOIN within w ON n.parent = w.id WHERE n.is_folder) "

std::optional<std::string> parentColumn(std::string_view parent) {
  if (parent == rootUlid) return std::nullopt;
  return std::string(parent);
}

std::int64_t wholeSeconds(std::int64_t nanoseconds) {
  const std::int64_t seconds = nanoseconds / nanosecondsPerSecond;
  return nanoseconds % nanosecondsPerSecond < 0 ? seconds - 1 : seconds;
}

std::int64_t stored(std::uint64_t inode) {
  return static_cast<std::int64_t>(inode);
}

}  // namespace

void Node::setFingerprint(const EntryStat& stat) {
  inode = stat.inode;
  birthNs = stat.birthNs;
  size = stat.isFile ? stat.size : 0;
  mtimeNs = stat.isFile ? stat.mtimeNs : 0;
}

bool Node::hasFingerprint(const EntryStat& stat) const {
  Node other;
  other.setFingerprint(stat);
  return inode == other.inode && size == other.size && mtimeNs == other.mtimeNs;
}

struct IndexStore::Statements {
  explicit Statements(sqlite3* db)
      : node(db, "SELECT " NODE_COLUMNS " FROM host_nodes WHERE ulid = ?"),
        child(db, "SELECT " NODE_COLUMNS " FROM host_nodes WHERE parent = ? AND disk_name = ?"),
        children(db, "SELECT " NODE_COLUMNS " FROM host_nodes WHERE parent = ?"),
        byInode(db, "SELECT " NODE_COLUMNS " FROM host_nodes WHERE inode = ?"),
        shownFolder(db,
                    "SELECT ulid FROM folders WHERE parent_ulid IS ? AND name = ? "
                    "ORDER BY ulid LIMIT 1"),
        folderRow(db, "SELECT name FROM folders WHERE ulid = ?"),
        itemRow(db,
                "SELECT name, version_number, size, locked_by_user_id FROM items WHERE ulid = ?"),
        insertNode(db, "INSERT INTO host_nodes(" NODE_COLUMNS ") VALUES(?,?,?,?,?,?,?,?)"),
        insertFolder(db, "INSERT INTO folders(ulid, name, parent_ulid) VALUES(?,?,?)"),
        insertItem(db,
                   "INSERT INTO items(ulid, name, folder_ulid, size, mtime_unix, version_number) "
                   "VALUES(?,?,?,?,?,1)"),
        placeNode(db, "UPDATE host_nodes SET parent = ?, disk_name = ? WHERE ulid = ?"),
        placeFolder(db, "UPDATE folders SET parent_ulid = ?, name = ? WHERE ulid = ?"),
        placeItem(db, "UPDATE items SET folder_ulid = ?, name = ? WHERE ulid = ?"),
        updateNode(db,
                   "UPDATE host_nodes SET inode = ?, birth_ns = ?, size = ?, mtime_ns = ? "
                   "WHERE ulid = ?"),
        updateItem(db,
                   "UPDATE items SET size = ?, mtime_unix = ?, version_number = version_number + 1 "
                   "WHERE ulid = ?") {}

  Statement node, child, children, byInode, shownFolder, folderRow, itemRow;
  Statement insertNode, insertFolder, insertItem, placeNode, placeFolder, placeItem;
  Statement updateNode, updateItem;
};

IndexStore::IndexStore(const std::string& path) : db_(path) {
  db_.execute("PRAGMA journal_mode=WAL");
  db_.execute("PRAGMA synchronous=FULL");
  // Readers without the right to create files beside the index can then open it at any time.
  int keep = 1;
  sqlite3_file_control(db_.handle(), "main", SQLITE_FCNTL_PERSIST_WAL, &keep);
  prepareSchema(path);
  statements_ = std::make_unique<Statements>(db_.handle());
}

IndexStore::~IndexStore() {
  rollback();
}

void IndexStore::prepareSchema(const std::string& path) {
  const auto tables = db_.value("SELECT count(*) FROM sqlite_schema WHERE type = 'table'");
  if (tables == "0") {
    db_.execute(schema);
    return;
  }
  if (db_.value("SELECT count(*) FROM sqlite_schema WHERE name = 'host_state'") != "1" ||
      db_.value("SELECT value FROM host_state WHERE key = 'schema'") != schemaVersion) {
    throw StartError(path +
                     " is not an index that this host wrote; remove it, or choose another "
                     "container");
  }
}

void IndexStore::change() {
  if (pending_ == 0) db_.execute("BEGIN IMMEDIATE");
  ++pending_;
}

void IndexStore::commit() {
  if (pending_ == 0) return;
  db_.execute("COMMIT");
  pending_ = 0;
}

void IndexStore::rollback() noexcept {
  if (pending_ == 0) return;
  sqlite3_exec(db_.handle(), "ROLLBACK", nullptr, nullptr, nullptr);
  pending_ = 0;
}

void IndexStore::checkpoint() {
  db_.execute("PRAGMA wal_checkpoint(TRUNCATE)");
}

std::vector<Node> IndexStore::readNodes(Statement& statement) {
  std::vector<Node> nodes;
  while (statement.step()) {
    nodes.push_back({statement.text(0), statement.text(1), statement.text(2),
                     statement.number(3) != 0, static_cast<std::uint64_t>(statement.number(4)),
                     statement.number(5), statement.number(6), statement.number(7)});
  }
  return nodes;
}

std::optional<Node> IndexStore::readNode(Statement& statement) {
  auto nodes = readNodes(statement);
  if (nodes.empty()) return std::nullopt;
  return std::move(nodes.front());
}

std::optional<Node> IndexStore::node(std::string_view ulid) {
  return readNode(statements_->node.bind(ulid));
}

std::optional<Node> IndexStore::child(std::string_view parent, std::string_view diskName) {
  return readNode(statements_->child.bind(parent).bindBlob(diskName));
}

std::vector<Node> IndexStore::children(std::string_view parent) {
  return readNodes(statements_->children.bind(parent));
}

std::vector<Node> IndexStore::nodesWithInode(std::uint64_t inode) {
  return readNodes(statements_->byInode.bind(stored(inode)));
}

Row IndexStore::row(const Node& node) {
  Row row;
  Statement& statement = node.isFolder ? statements_->folderRow : statements_->itemRow;
  if (!statement.bind(node.ulid).step()) return row;
  row.name = statement.text(0);
  if (!node.isFolder) {
    row.version = statement.number(1);
    row.size = statement.number(2);
    if (!statement.isNull(3)) row.lockedBy = statement.number(3);
  }
  statement.reset();
  return row;
}

std::optional<Node> IndexStore::folderShownAs(std::string_view parent, std::string_view name) {
  Statement& statement = statements_->shownFolder;
  if (!statement.bind(parentColumn(parent)).bind(name).step()) return std::nullopt;
  const std::string ulid = statement.text(0);
  statement.reset();
  return node(ulid);
}

bool IndexStore::isWithin(std::string_view ulid, std::string_view ancestor) {
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

bool IndexStore::hasLockBelow(std::string_view folder) {
  Statement statement(db_.handle(), FOLDERS_WITHIN
                      "SELECT 1 FROM within w JOIN items i ON i.folder_ulid = w.id "
                      "WHERE i.locked_by_user_id IS NOT NULL LIMIT 1");
  return statement.bind(folder).step();
}

std::int64_t IndexStore::totalSize() {
  return std::stoll(db_.value("SELECT coalesce(sum(size), 0) FROM items").value_or("0"));
}

Counts IndexStore::counts() {
  return {std::stoll(db_.value("SELECT count(*) FROM folders").value_or("0")),
          std::stoll(db_.value("SELECT count(*) FROM items").value_or("0"))};
}

std::string IndexStore::greatestUlid() {
  return db_.value("SELECT max(ulid) FROM host_nodes").value_or("");
}

void IndexStore::insert(const Node& node, std::string_view shownName) {
  change();
  statements_->insertNode.bind(node.ulid)
      .bind(node.parent)
      .bindBlob(node.diskName)
      .bind(static_cast<std::int64_t>(node.isFolder))
      .bind(stored(node.inode))
      .bind(node.birthNs)
      .bind(node.size)
      .bind(node.mtimeNs)
      .run();
  if (node.isFolder) {
    statements_->insertFolder.bind(node.ulid).bind(shownName).bind(parentColumn(node.parent)).run();
    return;
  }
  statements_->insertItem.bind(node.ulid)
      .bind(shownName)
      .bind(parentColumn(node.parent))
      .bind(node.size)
      .bind(wholeSeconds(node.mtimeNs))
      .run();
}

void IndexStore::place(std::string_view ulid, std::string_view parent, std::string_view diskName,
                       std::string_view shownName) {
  change();
  statements_->placeNode.bind(parent).bindBlob(diskName).bind(ulid).run();
  statements_->placeFolder.bind(parentColumn(parent)).bind(shownName).bind(ulid).run();
  statements_->placeItem.bind(parentColumn(parent)).bind(shownName).bind(ulid).run();
}

void IndexStore::displace(std::string_view ulid) {
  change();
  statements_->placeNode.bind(displacedParent).bindBlob(ulid).bind(ulid).run();
}

void IndexStore::updateContents(const Node& node) {
  updateFingerprint(node);
  statements_->updateItem.bind(node.size).bind(wholeSeconds(node.mtimeNs)).bind(node.ulid).run();
}

void IndexStore::updateFingerprint(const Node& node) {
  change();
  statements_->updateNode.bind(stored(node.inode))
      .bind(node.birthNs)
      .bind(node.size)
      .bind(node.mtimeNs)
      .bind(node.ulid)
      .run();
}

std::vector<std::string> IndexStore::remove(std::string_view ulid) {
  change();
  std::vector<std::string> folders;
  Statement within(db_.handle(), FOLDERS_WITHIN "SELECT id FROM within");
  within.bind(ulid);
  while (within.step())
    folders.push_back(within.text(0));

  Statement items(db_.handle(), "DELETE FROM items WHERE folder_ulid = ?");
  Statement below(db_.handle(), "DELETE FROM host_nodes WHERE parent = ?");
  Statement folder(db_.handle(), "DELETE FROM folders WHERE ulid = ?");
  Statement item(db_.handle(), "DELETE FROM items WHERE ulid = ?");
  Statement node(db_.handle(), "DELETE FROM host_nodes WHERE ulid = ?");
  for (const std::string& id : folders) {
    items.bind(id).run();
    below.bind(id).run();
    folder.bind(id).run();
  }
  item.bind(ulid).run();
  node.bind(ulid).run();
  return folders;
}

void IndexStore::setLock(std::string_view ulid, std::optional<std::int64_t> user) {
  change();
  Statement statement(db_.handle(), "UPDATE items SET locked_by_user_id = ? WHERE ulid = ?");
  statement.bind(user).bind(ulid).run();
}

void IndexStore::intend(const Node& node, std::string_view shownName) {
  change();
  Statement statement(db_.handle(),
                      "INSERT OR REPLACE INTO host_intents(inode, birth_ns, ulid, parent, "
                      "disk_name, name) VALUES(?,?,?,?,?,?)");
  statement.bind(stored(node.inode))
      .bind(node.birthNs)
      .bind(node.ulid)
      .bind(node.parent)
      .bindBlob(node.diskName)
      .bind(shownName)
      .run();
}

std::optional<Intent> IndexStore::intent(const EntryStat& stat) {
  Statement statement(db_.handle(),
                      "SELECT ulid, parent, disk_name, name FROM host_intents "
                      "WHERE inode = ? AND birth_ns = ?");
  if (!statement.bind(stored(stat.inode)).bind(stat.birthNs).step()) return std::nullopt;
  return Intent{statement.text(0), statement.text(1), statement.text(2), statement.text(3)};
}

void IndexStore::forgetIntents() {
  change();
  db_.execute("DELETE FROM host_intents");
}

std::optional<std::string> IndexStore::state(std::string_view key) {
  Statement statement(db_.handle(), "SELECT value FROM host_state WHERE key = ?");
  if (!statement.bind(key).step()) return std::nullopt;
  return statement.text(0);
}

void IndexStore::setState(std::string_view key, std::string_view value) {
  change();
  Statement statement(db_.handle(), "INSERT OR REPLACE INTO host_state(key, value) VALUES(?,?)");
  statement.bind(key).bind(value).run();
}

}  // namespace tulo::host
