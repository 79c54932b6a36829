#include "sqlite/Connection.h"

namespace tulo::sqlite {

namespace {

constexpr int kBusyMilliseconds = 10000;

}  // namespace

Connection::Connection(const std::string& path, Mode mode, const char* vfs) {
  sqlite3* handle = nullptr;
  int flags = SQLITE_OPEN_NOMUTEX;
  flags |= mode == Mode::readOnly ? SQLITE_OPEN_READONLY : SQLITE_OPEN_READWRITE;
  if (mode == Mode::create) flags |= SQLITE_OPEN_CREATE;
  const int result = sqlite3_open_v2(path.c_str(), &handle, flags, vfs);
  handle_.reset(handle);
  if (result != SQLITE_OK) {
    throw DatabaseError(
        result,
        "cannot open " + path + ": " + (handle ? sqlite3_errmsg(handle) : sqlite3_errstr(result)),
        handle ? sqlite3_system_errno(handle) : 0);
  }
  sqlite3_busy_timeout(handle, kBusyMilliseconds);
  if (mode == Mode::queryOnly) execute("PRAGMA query_only=1");
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

void Connection::keepLogFiles() {
  int keep = 1;
  sqlite3_file_control(handle_.get(), "main", SQLITE_FCNTL_PERSIST_WAL, &keep);
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

}  // namespace tulo::sqlite
