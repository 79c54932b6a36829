#include "service/replica/Meta.h"

#include "service/replica/Sql.h"

namespace tulo::meta {

namespace {

sqlite::Statement& query(ReplicaReader& reader, std::string_view key) {
  return sqlOf(reader).cached("SELECT value FROM meta WHERE key=CAST(? AS TEXT)").bind(key);
}

template <typename Value>
void put(ReplicaWriter& writer, std::string_view key, const Value& value) {
  sqlOf(writer)
      .cached("INSERT OR REPLACE INTO meta VALUES (CAST(? AS TEXT),?)")
      .bind(key, value)
      .run();
}

}  // namespace

std::int64_t integer(ReplicaReader& reader, std::string_view key) {
  sqlite::Statement& row = query(reader, key);
  sqlite::StatementUse use(row);
  return row.step() ? row.integer(0) : 0;
}

std::string text(ReplicaReader& reader, std::string_view key) {
  sqlite::Statement& row = query(reader, key);
  sqlite::StatementUse use(row);
  return row.step() ? std::string(row.text(0)) : std::string();
}

void set(ReplicaWriter& writer, std::string_view key, std::int64_t value) {
  put(writer, key, value);
}

void set(ReplicaWriter& writer, std::string_view key, std::string_view value) {
  put(writer, key, value);
}

void remove(ReplicaWriter& writer, std::string_view key) {
  sqlOf(writer).cached("DELETE FROM meta WHERE key=CAST(? AS TEXT)").bind(key).run();
}

}  // namespace tulo::meta
