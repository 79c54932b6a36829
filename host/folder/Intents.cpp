#include "host/folder/Intents.h"

#include "host/folder/DiskColumns.h"

namespace tulo::host {

using sqlite::StatementUse;
using sqlite::Text;

const std::string_view Intents::tables = R"(
CREATE TABLE host_intents(inode INTEGER PRIMARY KEY, birth_ns INTEGER NOT NULL, ulid TEXT NOT NULL,
                          parent TEXT NOT NULL, disk_name BLOB NOT NULL, name TEXT NOT NULL);
)";

void Intents::announce(const Node& node, std::string_view shownName) {
  database_
      .changing(
          "INSERT OR REPLACE INTO host_intents(inode, birth_ns, ulid, parent, disk_name, name) "
          "VALUES(?,?,?,?,?,?)")
      .bind(column(node.fingerprint.inode), column(node.fingerprint.born), Text{node.ulid},
            Text{node.parent}, node.diskName, Text{shownName})
      .run();
}

std::optional<Intent> Intents::find(const Fingerprint& fingerprint) {
  sqlite::Statement& statement = database_.reading(
      "SELECT ulid, parent, disk_name, name FROM host_intents WHERE inode = ? AND birth_ns = ?");
  const StatementUse use(statement);
  if (!statement.bind(column(fingerprint.inode), column(fingerprint.born)).step()) {
    return std::nullopt;
  }
  return Intent{std::string(statement.text(0)), std::string(statement.text(1)),
                std::string(statement.text(2)), std::string(statement.text(3))};
}

void Intents::forgetAll() {
  database_.changing("DELETE FROM host_intents").run();
}

}  // namespace tulo::host
