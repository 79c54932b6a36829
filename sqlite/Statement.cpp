#include "sqlite/Statement.h"

#include "sqlite/DatabaseError.h"

namespace tulo::sqlite {

namespace {

// A null pointer would bind NULL; what is empty stays empty.
const char* bytesOf(std::string_view value) {
  return value.data() ? value.data() : "";
}

}  // namespace

Statement::Statement(sqlite3* database, std::string_view sql) {
  sqlite3_stmt* statement = nullptr;
  const int result = sqlite3_prepare_v3(database, sql.data(), static_cast<int>(sql.size()),
                                        SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
  statement_.reset(statement);
  if (result != SQLITE_OK) fail(database, result);
}

void Statement::check(int result) const {
  if (result != SQLITE_OK) fail(sqlite3_db_handle(statement_.get()), result);
}

bool Statement::step() {
  const int result = sqlite3_step(statement_.get());
  if (result == SQLITE_ROW) return true;
  if (result == SQLITE_DONE) return false;
  try {
    fail(sqlite3_db_handle(statement_.get()), result);
  } catch (...) {
    sqlite3_reset(statement_.get());
    throw;
  }
}

void Statement::run() {
  while (step()) {
  }
  reset();
}

void Statement::reset() {
  if (statement_) sqlite3_reset(statement_.get());
}

std::int64_t Statement::integer(int column) const {
  return sqlite3_column_int64(statement_.get(), column);
}

std::string_view Statement::text(int column) const {
  const void* bytes = sqlite3_column_blob(statement_.get(), column);
  const int size = sqlite3_column_bytes(statement_.get(), column);
  return bytes ? std::string_view(static_cast<const char*>(bytes), static_cast<std::size_t>(size))
               : std::string_view();
}

bool Statement::isNull(int column) const {
  return sqlite3_column_type(statement_.get(), column) == SQLITE_NULL;
}

void Statement::bindOne(int index, std::int64_t value) {
  check(sqlite3_bind_int64(statement_.get(), index, value));
}

void Statement::bindOne(int index, std::nullptr_t) {
  check(sqlite3_bind_null(statement_.get(), index));
}

// Names and versions are bytes, not necessarily text: all are stored as blobs, which compare by
// their bytes.
void Statement::bindOne(int index, std::string_view value) {
  check(sqlite3_bind_blob64(statement_.get(), index, bytesOf(value), value.size(), SQLITE_STATIC));
}

void Statement::bindOne(int index, Text value) {
  check(sqlite3_bind_text64(statement_.get(), index, bytesOf(value.bytes), value.bytes.size(),
                            SQLITE_STATIC, SQLITE_UTF8));
}

}  // namespace tulo::sqlite
