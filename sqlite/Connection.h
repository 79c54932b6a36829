// A SQLite connection behind an owning handle.
//
// Threads: a connection and its statements belong to one thread at a time.
// Errors: everything throws DatabaseError, except destructors.
#pragma once

#include <sqlite3.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "sqlite/DatabaseError.h"
#include "sqlite/Statement.h"

namespace tulo::sqlite {

class Connection {
 public:
  enum class Mode {
    create,  // for reading and writing; made if it is not there
    readOnly,
    queryOnly,  // opened like one that writes, which some file layers need, but refuses to
  };

  // `vfs`: the name of SQLite's file layer, which stays for as long as the process; null for the
  // usual one. Waits up to ten seconds for a lock of another connection.
  Connection(const std::string& path, Mode mode, const char* vfs = nullptr);

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
  // Leaves the log's files beside the database when it is closed: readers without the right to
  // create files can then open it at any time.
  void keepLogFiles();
  bool inTransaction() const { return sqlite3_get_autocommit(handle_.get()) == 0; }

 private:
  struct Closer {
    void operator()(sqlite3* handle) const { sqlite3_close_v2(handle); }
  };
  // Declared before the statements, which are finalized first.
  std::unique_ptr<sqlite3, Closer> handle_;
  std::map<std::string, Statement, std::less<>> statements_;
};

}  // namespace tulo::sqlite
