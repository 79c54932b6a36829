// What SQLite could not do. The message names the database's file.
#pragma once

#include <sqlite3.h>

#include <stdexcept>
#include <string>

namespace tulo::sqlite {

class DatabaseError : public std::runtime_error {
 public:
  // `systemError`: the errno behind a file that could not be opened or read, if that is known.
  DatabaseError(int code, const std::string& message, int systemError = 0)
      : std::runtime_error(message), code_(code), systemError_(systemError) {}

  // SQLite's primary result code.
  int code() const { return code_ & 0xff; }
  // 0 when there is none.
  int systemError() const {
    return code() == SQLITE_CANTOPEN || code() == SQLITE_IOERR ? systemError_ : 0;
  }
  bool meansFullDisk() const { return code() == SQLITE_FULL; }
  // The file is no database, or not a whole one.
  bool meansDamage() const { return code() == SQLITE_CORRUPT || code() == SQLITE_NOTADB; }

 private:
  int code_;
  int systemError_;
};

// Throws what `result`, or the connection's last error where there is a connection, says.
[[noreturn]] void fail(sqlite3* database, int result);

}  // namespace tulo::sqlite
