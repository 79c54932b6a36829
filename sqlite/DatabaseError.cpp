#include "sqlite/DatabaseError.h"

#include <string_view>

namespace tulo::sqlite {

namespace {

std::string fileName(sqlite3* database) {
  const char* path = sqlite3_db_filename(database, "main");
  const std::string_view text = path ? path : "";
  return std::string(text.substr(text.rfind('/') + 1));
}

}  // namespace

void fail(sqlite3* database, int result) {
  if (!database) throw DatabaseError(result, sqlite3_errstr(result));
  throw DatabaseError(result, fileName(database) + ": " + sqlite3_errmsg(database),
                      sqlite3_system_errno(database));
}

}  // namespace tulo::sqlite
