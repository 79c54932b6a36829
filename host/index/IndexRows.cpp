#include "host/index/IndexRows.h"

namespace tulo::host {

using sqlite::Statement;
using sqlite::StatementUse;
using sqlite::Text;

namespace {

// The folder and all folders below it.
#define FOLDERS_WITHIN                                                          \
  "WITH RECURSIVE within(id) AS (SELECT ?1 UNION SELECT f.ulid FROM folders f " \
  "JOIN within w ON f.parent_ulid = w.id) "

std::optional<Text> parentColumn(std::string_view parent) {
  if (parent == rootUlid) return std::nullopt;
  return Text{parent};
}

std::int64_t column(std::chrono::sys_seconds time) {
  return time.time_since_epoch().count();
}

}  // namespace

std::string IndexRows::nameOf(std::string_view ulid) {
  Statement& statement = database_.reading(
      "SELECT name FROM folders WHERE ulid = ?1 UNION ALL SELECT name FROM items WHERE ulid = ?1");
  const StatementUse use(statement);
  return statement.bind(Text{ulid}).step() ? std::string(statement.text(0)) : std::string();
}

std::optional<FileRow> IndexRows::file(std::string_view ulid) {
  Statement& statement =
      database_.reading("SELECT version_number, size, locked_by_user_id FROM items WHERE ulid = ?");
  const StatementUse use(statement);
  if (!statement.bind(Text{ulid}).step()) return std::nullopt;
  FileRow row{statement.integer(0), statement.integer(1), std::nullopt};
  if (!statement.isNull(2)) row.lockedBy = statement.integer(2);
  return row;
}

std::optional<std::string> IndexRows::folderNamed(std::string_view parent, std::string_view name) {
  Statement& statement = database_.reading(
      "SELECT ulid FROM folders WHERE parent_ulid IS ? AND name = ? ORDER BY ulid LIMIT 1");
  const StatementUse use(statement);
  if (!statement.bind(parentColumn(parent), Text{name}).step()) return std::nullopt;
  return std::string(statement.text(0));
}

bool IndexRows::hasLockBelow(std::string_view folder) {
  Statement& statement =
      database_.reading(FOLDERS_WITHIN
                        "SELECT 1 FROM within w JOIN items i ON i.folder_ulid = w.id "
                        "WHERE i.locked_by_user_id IS NOT NULL LIMIT 1");
  const StatementUse use(statement);
  return statement.bind(Text{folder}).step();
}

std::int64_t IndexRows::totalSize() {
  Statement& statement = database_.reading("SELECT coalesce(sum(size), 0) FROM items");
  const StatementUse use(statement);
  statement.step();
  return statement.integer(0);
}

Counts IndexRows::counts() {
  Statement& statement =
      database_.reading("SELECT (SELECT count(*) FROM folders), (SELECT count(*) FROM items)");
  const StatementUse use(statement);
  statement.step();
  return {statement.integer(0), statement.integer(1)};
}

std::string IndexRows::greatestUlid() {
  Statement& statement = database_.reading(
      "SELECT max(ulid) FROM (SELECT max(ulid) AS ulid FROM folders "
      "UNION ALL SELECT max(ulid) FROM items)");
  const StatementUse use(statement);
  statement.step();
  return std::string(statement.text(0));
}

void IndexRows::addFolder(std::string_view ulid, std::string_view parent, std::string_view name) {
  database_.changing("INSERT INTO folders(ulid, name, parent_ulid) VALUES(?,?,?)")
      .bind(Text{ulid}, Text{name}, parentColumn(parent))
      .run();
}

void IndexRows::addFile(std::string_view ulid, std::string_view parent, std::string_view name,
                        const FileContents& contents) {
  database_
      .changing(
          "INSERT INTO items(ulid, name, folder_ulid, size, mtime_unix, version_number) "
          "VALUES(?,?,?,?,?,1)")
      .bind(Text{ulid}, Text{name}, parentColumn(parent), contents.size, column(contents.modified))
      .run();
}

void IndexRows::place(std::string_view ulid, std::string_view parent, std::string_view name) {
  database_.changing("UPDATE folders SET parent_ulid = ?, name = ? WHERE ulid = ?")
      .bind(parentColumn(parent), Text{name}, Text{ulid})
      .run();
  database_.changing("UPDATE items SET folder_ulid = ?, name = ? WHERE ulid = ?")
      .bind(parentColumn(parent), Text{name}, Text{ulid})
      .run();
}

void IndexRows::setContents(std::string_view ulid, const FileContents& contents) {
  database_
      .changing(
          "UPDATE items SET size = ?, mtime_unix = ?, version_number = version_number + 1 "
          "WHERE ulid = ?")
      .bind(contents.size, column(contents.modified), Text{ulid})
      .run();
}

void IndexRows::setLock(std::string_view ulid, std::optional<std::int64_t> user) {
  database_.changing("UPDATE items SET locked_by_user_id = ? WHERE ulid = ?")
      .bind(user, Text{ulid})
      .run();
}

std::vector<std::string> IndexRows::remove(std::string_view ulid) {
  std::vector<std::string> folders;
  {
    Statement& within = database_.reading(FOLDERS_WITHIN "SELECT id FROM within");
    const StatementUse use(within);
    within.bind(Text{ulid});
    while (within.step())
      folders.emplace_back(within.text(0));
  }
  for (const std::string& id : folders) {
    database_.changing("DELETE FROM items WHERE folder_ulid = ?").bind(Text{id}).run();
    database_.changing("DELETE FROM folders WHERE ulid = ?").bind(Text{id}).run();
  }
  database_.changing("DELETE FROM items WHERE ulid = ?").bind(Text{ulid}).run();
  return folders;
}

}  // namespace tulo::host
