// SQLite behind owning handles.
//
// When a change is safe: every change is committed to the log file before the call that made it
// returns, so it outlives the end of the process, kill -9 included. It outlives a power cut once
// the log was forced to the disk: before fsync(2) of a file or a folder returns, and otherwise in
// the background about a second later. POSIX promises no more of close, rename and mkdir, so none
// of them waits for the disk. Those who wait at the same time share one turn
// (Replica::synchronize).
//
// Threads: a connection and its statements belong to one thread at a time.
// Errors: everything throws DatabaseError, except destructors.
#pragma once

#include <sqlite3.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace tulo {

class DatabaseError : public std::runtime_error {
 public:
  DatabaseError(int code, const std::string& message) : std::runtime_error(message), code_(code) {}

  // SQLite's primary result code.
  int code() const { return code_ & 0xff; }
  bool meansFullDisk() const { return code() == SQLITE_FULL; }
  // The file is no database, or not a whole one.
  bool meansDamage() const { return code() == SQLITE_CORRUPT || code() == SQLITE_NOTADB; }

 private:
  int code_;
};

class Statement {
 public:
  Statement() = default;
  Statement(sqlite3* database, std::string_view sql);

  // Binds from the first parameter on, after a reset.
  template <typename... Values>
  Statement& bind(const Values&... values) {
    reset();
    bindFrom(0, values...);
    return *this;
  }

  // Binds those after the first `index` parameters. The statement must have been reset.
  template <typename... Values>
  void bindFrom(int index, const Values&... values) {
    (bindOne(++index, values), ...);
  }

  // True while there is a row.
  bool step();
  // Runs a statement that gives no rows.
  void run();
  // Ends the reading, so that no read transaction is held open.
  void reset();

  std::int64_t integer(int column) const;
  // Valid until the next step or reset.
  std::string_view text(int column) const;
  bool isNull(int column) const;

 private:
  struct Finalizer {
    void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
  };

  void bindOne(int index, std::int64_t value);
  void bindOne(int index, std::uint64_t value) { bindOne(index, static_cast<std::int64_t>(value)); }
  void bindOne(int index, int value) { bindOne(index, static_cast<std::int64_t>(value)); }
  void bindOne(int index, bool value) { bindOne(index, static_cast<std::int64_t>(value)); }
  void bindOne(int index, std::nullptr_t);
  // The text must stay until the statement is reset.
  void bindOne(int index, std::string_view value);
  void bindOne(int index, const std::string& value) { bindOne(index, std::string_view(value)); }
  void bindOne(int index, const char* value) { bindOne(index, std::string_view(value)); }
  template <typename Value>
  void bindOne(int index, const std::optional<Value>& value) {
    if (value) {
      bindOne(index, *value);
    } else {
      bindOne(index, nullptr);
    }
  }
  void check(int result) const;

  std::unique_ptr<sqlite3_stmt, Finalizer> statement_;
};

// Resets a statement at the end of a scope.
class StatementUse {
 public:
  explicit StatementUse(Statement& statement) : statement_(statement) {}
  ~StatementUse() { statement_.reset(); }
  StatementUse(const StatementUse&) = delete;
  StatementUse& operator=(const StatementUse&) = delete;

 private:
  Statement& statement_;
};

class Connection {
 public:
  // `alone`: for writing and for reading a database that no other process opens meanwhile. Its
  // connections need no locks of the kernel's and no shared memory file.
  enum class Mode { create, readOnly, createAlone, readAlone };

  Connection(const std::string& path, Mode mode);

  void execute(const std::string& sql);
  std::int64_t integer(std::string_view sql);
  Statement prepare(std::string_view sql) { return Statement(handle_.get(), sql); }
  // As prepare, but kept for the next time: for statements with a fixed text.
  Statement& cached(std::string_view sql);
  std::int64_t changes() const { return sqlite3_changes(handle_.get()); }
  // Keeps the number of frames in the write-ahead log there after each commit, instead of moving
  // them into the database by itself. The number must outlive the connection.
  void countLogFrames(std::atomic<int>& frames);
  // Moves the frames into the database as far as nobody still reads them, holding up nobody.
  void checkpoint();
  bool inTransaction() const { return sqlite3_get_autocommit(handle_.get()) == 0; }

 private:
  struct Closer {
    void operator()(sqlite3* handle) const { sqlite3_close_v2(handle); }
  };
  // Declared before the statements, which are finalized first.
  std::unique_ptr<sqlite3, Closer> handle_;
  std::map<std::string, Statement, std::less<>> statements_;
};

}  // namespace tulo
