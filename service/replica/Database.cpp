#include "service/replica/Database.h"

#include "service/replica/GatheringLog.h"

namespace tulo {

namespace {

constexpr int kBusyMilliseconds = 10000;

[[noreturn]] void fail(sqlite3* database, int result) {
  throw DatabaseError(result, std::string("replica database: ") +
                                  (database ? sqlite3_errmsg(database) : sqlite3_errstr(result)));
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
  sqlite3* database = sqlite3_db_handle(statement_.get());
  const DatabaseError error(result, std::string("replica database: ") + sqlite3_errmsg(database));
  sqlite3_reset(statement_.get());
  throw error;
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
  check(sqlite3_bind_blob64(statement_.get(), index, value.data() ? value.data() : "", value.size(),
                            SQLITE_STATIC));
}

Connection::Connection(const std::string& path, Mode mode) {
  sqlite3* handle = nullptr;
  const bool alone = mode == Mode::createAlone || mode == Mode::readAlone;
  int flags = SQLITE_OPEN_NOMUTEX;
  flags |= mode == Mode::readOnly ? SQLITE_OPEN_READONLY : SQLITE_OPEN_READWRITE;
  if (mode == Mode::create || mode == Mode::createAlone) flags |= SQLITE_OPEN_CREATE;
  const int result =
      sqlite3_open_v2(path.c_str(), &handle, flags, alone ? gatheringVfs() : nullptr);
  handle_.reset(handle);
  if (result != SQLITE_OK) {
    throw DatabaseError(result, "cannot open " + path + ": " +
                                    (handle ? sqlite3_errmsg(handle) : sqlite3_errstr(result)));
  }
  sqlite3_busy_timeout(handle, kBusyMilliseconds);
  if (mode == Mode::readAlone) execute("PRAGMA query_only=1");
}

void Connection::execute(const std::string& sql) {
  const int result = sqlite3_exec(handle_.get(), sql.c_str(), nullptr, nullptr, nullptr);
  if (result != SQLITE_OK) fail(handle_.get(), result);
}

void Connection::countLogFrames(std::atomic<int>& frames) {
  const auto count = [](void* number, sqlite3*, const char*, int inLog) {
    static_cast<std::atomic<int>*>(number)->store(inLog);
    return SQLITE_OK;
  };
  sqlite3_wal_hook(handle_.get(), count, &frames);
}

void Connection::checkpoint() {
  // A connection that has read nothing yet does not know of the log.
  integer("PRAGMA user_version");
  const int result = sqlite3_wal_checkpoint_v2(handle_.get(), nullptr, SQLITE_CHECKPOINT_PASSIVE,
                                               nullptr, nullptr);
  if (result != SQLITE_OK && result != SQLITE_BUSY) fail(handle_.get(), result);
}

Statement& Connection::cached(std::string_view sql) {
  auto found = statements_.find(sql);
  if (found == statements_.end()) {
    found = statements_.emplace(std::string(sql), prepare(sql)).first;
  }
  return found->second;
}

std::int64_t Connection::integer(std::string_view sql) {
  Statement statement = prepare(sql);
  return statement.step() ? statement.integer(0) : 0;
}

}  // namespace tulo
