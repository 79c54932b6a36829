#include "service/replica/Schema.h"

#include <array>
#include <string>

namespace tulo::schema {

namespace {

// Element i brings version i to version i + 1. Entries are never changed once released.
constexpr std::array<std::string_view, kVersion> kSteps = {
    R"(
CREATE TABLE meta (key TEXT PRIMARY KEY, value) WITHOUT ROWID;
INSERT INTO meta VALUES ('next_node', 16), ('next_content', 1), ('generation', 1);
CREATE TABLE node (
  id INTEGER PRIMARY KEY,
  parent INTEGER,
  name BLOB NOT NULL,
  filename BLOB,
  kind INTEGER NOT NULL,
  identifier BLOB,
  content_version BLOB,
  metadata_version BLOB,
  size INTEGER NOT NULL DEFAULT 0,
  modified INTEGER NOT NULL DEFAULT 0,
  capabilities INTEGER NOT NULL DEFAULT 0,
  mode INTEGER NOT NULL DEFAULT 0,
  state INTEGER NOT NULL DEFAULT 0,
  content INTEGER NOT NULL DEFAULT 0,
  blocks INTEGER NOT NULL DEFAULT 0,
  pinned INTEGER NOT NULL DEFAULT 0,
  kept INTEGER NOT NULL DEFAULT 0,
  last_used INTEGER NOT NULL DEFAULT 0,
  error BLOB,
  listed INTEGER NOT NULL DEFAULT 0,
  digest BLOB,
  detached INTEGER
);
CREATE UNIQUE INDEX node_name ON node (parent, name);
CREATE INDEX node_parent ON node (parent);
CREATE UNIQUE INDEX node_identifier ON node (identifier) WHERE identifier IS NOT NULL;
CREATE INDEX node_wanted ON node (id) WHERE kept = 1 AND kind = 2 AND state = 0;
CREATE INDEX node_kept_folders ON node (id) WHERE kept = 1 AND kind = 1;
CREATE INDEX node_cached ON node (last_used) WHERE state = 1 AND kept = 0;
CREATE INDEX node_failed ON node (id) WHERE error IS NOT NULL;
CREATE INDEX node_detached ON node (detached) WHERE detached IS NOT NULL;
CREATE TABLE content (
  id INTEGER PRIMARY KEY,
  node INTEGER NOT NULL,
  blocks INTEGER NOT NULL DEFAULT 0,
  used INTEGER NOT NULL DEFAULT 0,
  durable INTEGER NOT NULL DEFAULT 0
);
CREATE INDEX content_node ON content (node);
CREATE INDEX content_unused ON content (id) WHERE used = 0;
CREATE INDEX content_volatile ON content (id) WHERE durable = 0;
)",
    R"(
CREATE TABLE pending (
  node INTEGER PRIMARY KEY,
  sequence INTEGER NOT NULL,
  deleted INTEGER NOT NULL DEFAULT 0,
  contents INTEGER NOT NULL DEFAULT 0,
  base_parent BLOB,
  base_filename BLOB,
  base_version BLOB,
  due INTEGER NOT NULL,
  attempts INTEGER NOT NULL DEFAULT 0,
  sent INTEGER NOT NULL DEFAULT 0,
  sent_content INTEGER NOT NULL DEFAULT 0,
  sent_parent BLOB,
  sent_filename BLOB,
  attention INTEGER NOT NULL DEFAULT 0,
  held INTEGER NOT NULL DEFAULT 0,
  reason BLOB
);
CREATE UNIQUE INDEX pending_sequence ON pending (sequence);
CREATE INDEX pending_base ON pending (base_parent, base_filename);
CREATE TABLE link (node INTEGER PRIMARY KEY, target BLOB NOT NULL);
CREATE TABLE local_time (node INTEGER PRIMARY KEY);
)",
    R"(
ALTER TABLE node ADD COLUMN nanoseconds INTEGER NOT NULL DEFAULT 0;
CREATE INDEX node_unknown ON node (id) WHERE identifier IS NULL;
CREATE INDEX pending_due ON pending (due) WHERE attention = 0 AND held = 0;
DROP INDEX pending_sequence;
DROP INDEX pending_base;
CREATE INDEX pending_base ON pending (base_parent, base_filename) WHERE base_parent <> x'';
CREATE INDEX pending_held ON pending (node) WHERE held = 1;
)",
};

}  // namespace

void bringUpToDate(sqlite::Connection& database) {
  const std::int64_t found = database.integer("PRAGMA user_version");
  if (found > kVersion) {
    throw sqlite::DatabaseError(SQLITE_SCHEMA, "the replica has schema version " +
                                                   std::to_string(found) + ", newer than the " +
                                                   std::to_string(kVersion) +
                                                   " that this program knows");
  }
  for (std::int64_t version = found; version < kVersion; ++version) {
    std::string script = "BEGIN IMMEDIATE;";
    script += kSteps[static_cast<std::size_t>(version)];
    script += "PRAGMA user_version=" + std::to_string(version + 1) + ";COMMIT;";
    database.execute(script);
  }
}

}  // namespace tulo::schema
