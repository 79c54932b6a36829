// A SQLite connection and its statements, as this host uses them.
//
// Threads: not thread-safe; whoever owns a Database guards it.
// Errors: every member throws OperationError (disk_full where the disk is full, io otherwise).
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace tulo::host {

class Statement {
 public:
  // `db` must outlive the statement.
  Statement(sqlite3* db, std::string_view sql);

  // Binds the next parameter. Text is stored as TEXT even where it is not valid UTF-8.
  Statement& bind(std::string_view text);
  Statement& bind(const std::string& text) { return bind(std::string_view(text)); }
  Statement& bind(const char* text) { return bind(std::string_view(text)); }
  Statement& bind(std::int64_t number);
  Statement& bind(const std::optional<std::string>& text);
  Statement& bind(const std::optional<std::int64_t>& number);
  Statement& bindBlob(std::string_view bytes);

  // True on a row. After the last row the statement is ready to be bound and stepped again.
  bool step();
  // Steps through and leaves the statement ready for its next use.
  void run();
  // Leaves the statement ready for its next use before its last row.
  void reset();

  std::string text(int column) const;
  std::int64_t number(int column) const;
  bool isNull(int column) const;

 private:
  struct Finalize {
    void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
  };
  std::unique_ptr<sqlite3_stmt, Finalize> statement_;
  int bound_ = 0;
};

class Database {
 public:
  // Opens `path` for reading and writing, creating it if it does not exist.
  explicit Database(const std::string& path);

  void execute(const std::string& sql);
  // The first column of the first row, or nothing.
  std::optional<std::string> value(std::string_view sql);
  sqlite3* handle() { return db_.get(); }
  // The number of rows that the last statement changed.
  int changes() { return sqlite3_changes(db_.get()); }

 private:
  struct Close {
    void operator()(sqlite3* db) const { sqlite3_close_v2(db); }
  };
  std::unique_ptr<sqlite3, Close> db_;
};

}  // namespace tulo::host
