// What SQLite could not do. The message names the database's file.
#pragma once

#include <sqlite3.h>

#include <stdexcept>
#include <string>

namespace tulo::sqlite {

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

// Throws what `result`, or the connection's last error where there is a connection, says.
[[noreturn]] void fail(sqlite3* database, int result);

}  // namespace tulo::sqlite
