#include "host/index/Database.h"

#include <fcntl.h>

#include "host/base/HostError.h"
#include "platform/linux/FileDescriptor.h"

namespace tulo::host {

namespace {

constexpr int busyMilliseconds = 10'000;

[[noreturn]] void fail(sqlite3* db, std::string_view what) {
  const int code = db == nullptr ? SQLITE_NOMEM : sqlite3_errcode(db);
  const std::string text = db == nullptr ? "out of memory" : sqlite3_errmsg(db);
  throw OperationError(code == SQLITE_FULL ? kind::diskFull : kind::io,
                       "index: " + std::string(what) + ": " + text);
}

}  // namespace

Statement::Statement(sqlite3* db, std::string_view sql) {
  sqlite3_stmt* statement = nullptr;
  const int size = static_cast<int>(sql.size());
  if (sqlite3_prepare_v3(db, sql.data(), size, SQLITE_PREPARE_PERSISTENT, &statement, nullptr) !=
      SQLITE_OK) {
    fail(db, sql);
  }
  statement_.reset(statement);
}

Statement& Statement::bind(std::string_view text) {
  // A null pointer would bind NULL; empty text stays empty.
  const char* data = text.data() == nullptr ? "" : text.data();
  sqlite3_bind_text64(statement_.get(), ++bound_, data, text.size(), SQLITE_TRANSIENT, SQLITE_UTF8);
  return *this;
}

Statement& Statement::bind(std::int64_t number) {
  sqlite3_bind_int64(statement_.get(), ++bound_, number);
  return *this;
}

Statement& Statement::bind(const std::optional<std::string>& text) {
  if (text) return bind(std::string_view(*text));
  sqlite3_bind_null(statement_.get(), ++bound_);
  return *this;
}

Statement& Statement::bind(const std::optional<std::int64_t>& number) {
  if (number) return bind(*number);
  sqlite3_bind_null(statement_.get(), ++bound_);
  return *this;
}

Statement& Statement::bindBlob(std::string_view bytes) {
  const char* data = bytes.data() == nullptr ? "" : bytes.data();
  sqlite3_bind_blob64(statement_.get(), ++bound_, data, bytes.size(), SQLITE_TRANSIENT);
  return *this;
}

bool Statement::step() {
  const int result = sqlite3_step(statement_.get());
  if (result == SQLITE_ROW) return true;
  sqlite3* db = sqlite3_db_handle(statement_.get());
  if (result != SQLITE_DONE) {
    const std::string sql = sqlite3_sql(statement_.get());
    const int code = sqlite3_errcode(db);
    const std::string text = sqlite3_errmsg(db);
    reset();
    throw OperationError(code == SQLITE_FULL ? kind::diskFull : kind::io,
                         "index: " + sql + ": " + text);
  }
  reset();
  return false;
}

void Statement::run() {
  while (step()) {
  }
}

void Statement::reset() {
  sqlite3_reset(statement_.get());
  sqlite3_clear_bindings(statement_.get());
  bound_ = 0;
}

std::string Statement::text(int column) const {
  const void* bytes = sqlite3_column_blob(statement_.get(), column);
  const int size = sqlite3_column_bytes(statement_.get(), column);
  return bytes == nullptr
             ? std::string()
             : std::string(static_cast<const char*>(bytes), static_cast<std::size_t>(size));
}

std::int64_t Statement::number(int column) const {
  return sqlite3_column_int64(statement_.get(), column);
}

bool Statement::isNull(int column) const {
  return sqlite3_column_type(statement_.get(), column) == SQLITE_NULL;
}

Database::Database(const std::string& path) {
  // SQLite would let everybody read the names of the user's files. Only a new file is opened here:
  // closing it would drop the locks that other connections of this process hold.
  const FileDescriptor created(::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  sqlite3* db = nullptr;
  const int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX;
  const int result = sqlite3_open_v2(path.c_str(), &db, flags, nullptr);
  db_.reset(db);
  if (result != SQLITE_OK) fail(db, "opening " + path);
  sqlite3_busy_timeout(db, busyMilliseconds);
}

void Database::execute(const std::string& sql) {
  if (sqlite3_exec(db_.get(), sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) {
    fail(db_.get(), sql);
  }
}

std::optional<std::string> Database::value(std::string_view sql) {
  Statement statement(db_.get(), sql);
  if (!statement.step()) return std::nullopt;
  return statement.text(0);
}

}  // namespace tulo::host
