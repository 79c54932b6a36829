#include "host/index/IndexDatabase.h"

#include <fcntl.h>

#include "host/base/HostError.h"
#include "platform/linux/FileDescriptor.h"

namespace tulo::host {

namespace {

constexpr std::string_view schemaVersion = "1";

// Rows keep SQLite's own row numbers: a listing that goes from an index to its rows is then cheaper
// than with the text key, and rows of one folder lie near each other.
constexpr const char* sharedTables = R"(
CREATE TABLE folders(ulid TEXT PRIMARY KEY NOT NULL, name TEXT NOT NULL, parent_ulid TEXT);
CREATE INDEX folders_by_parent ON folders(parent_ulid, name);
CREATE TABLE items(ulid TEXT PRIMARY KEY NOT NULL, name TEXT NOT NULL, folder_ulid TEXT,
                   size INTEGER NOT NULL, mtime_unix INTEGER NOT NULL,
                   version_number INTEGER NOT NULL, locked_by_user_id INTEGER);
CREATE INDEX items_by_folder ON items(folder_ulid, name);
CREATE TABLE host_state(key TEXT PRIMARY KEY NOT NULL, value TEXT NOT NULL) WITHOUT ROWID;
INSERT INTO host_state VALUES('schema', '1');
)";

constexpr const char* identityTable =
    "CREATE TABLE IF NOT EXISTS host_identity(id TEXT PRIMARY KEY NOT NULL) WITHOUT ROWID";

// SQLite would let everybody read the names of the user's files. Only a new file is opened here:
// closing it would drop the locks that other connections of this process hold.
const std::string& privatelyMade(const std::string& path) {
  const FileDescriptor created(::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  return path;
}

bool isOurs(sqlite::Connection& connection) {
  if (connection.integer("SELECT count(*) FROM sqlite_schema WHERE name = 'host_state'") != 1) {
    return false;
  }
  sqlite::Statement version =
      connection.prepare("SELECT value FROM host_state WHERE key = 'schema'");
  return version.step() && version.text(0) == schemaVersion;
}

}  // namespace

IndexDatabase::IndexDatabase(const std::string& path, std::string_view furtherTables,
                             std::string_view identity)
    : connection_(privatelyMade(path), sqlite::Connection::Mode::create) {
  connection_.execute("PRAGMA journal_mode=WAL");
  connection_.execute("PRAGMA synchronous=FULL");
  connection_.keepLogFiles();
  prepareTables(path, furtherTables, identity);
}

void IndexDatabase::identify(std::string_view identity) {
  // An index of an earlier version of this host has no such table.
  changing(identityTable).run();
  changing("INSERT INTO host_identity SELECT ?1 WHERE NOT EXISTS (SELECT 1 FROM host_identity)")
      .bind(sqlite::Text{identity})
      .run();
}

IndexDatabase::~IndexDatabase() {
  rollback();
}

// The identity comes with the tables, so that nobody ever reads an index and not whose it is.
void IndexDatabase::prepareTables(const std::string& path, std::string_view furtherTables,
                                  std::string_view identity) {
  if (connection_.integer("SELECT count(*) FROM sqlite_schema WHERE type = 'table'") == 0) {
    connection_.execute("BEGIN IMMEDIATE;" + std::string(sharedTables) +
                        std::string(furtherTables));
    pending_ = 1;
    if (!identity.empty()) identify(identity);
    commit();
  } else if (!isOurs(connection_)) {
    throw StartError(path +
                     " is not an index that this host wrote; remove it, or choose another "
                     "container");
  }
}

sqlite::Statement& IndexDatabase::changing(std::string_view sql) {
  if (pending_ == 0) connection_.execute("BEGIN IMMEDIATE");
  ++pending_;
  return connection_.cached(sql);
}

void IndexDatabase::commit() {
  if (pending_ == 0) return;
  connection_.execute("COMMIT");
  pending_ = 0;
}

void IndexDatabase::rollback() noexcept {
  if (pending_ == 0) return;
  pending_ = 0;
  try {
    connection_.execute("ROLLBACK");
  } catch (const sqlite::DatabaseError&) {
    // What failed before has ended the transaction already.
  }
}

void IndexDatabase::checkpoint() {
  connection_.execute("PRAGMA wal_checkpoint(TRUNCATE)");
}

}  // namespace tulo::host
