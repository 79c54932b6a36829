// The file of one account's index, and what is written to it together.
//
// The tables `folders` and `items` are what the extension reads; those that begin with `host_` are
// the host's own. `host_state` and `host_identity` are here for every kind of account; a kind
// brings the schema of further ones.
//
// Threads: not thread-safe; the account guards it.
// Errors: sqlite::DatabaseError, which the account turns into an OperationError (IndexFailure.h).
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "sqlite/Connection.h"

namespace tulo::host {

class IndexDatabase {
 public:
  // Opens the database or creates it, private to its user, with all of its tables in one step.
  // `furtherTables`: the statements that create those of the account's kind. `identity` is that of
  // an account whose database is created. Throws StartError for a file that is not an index of this
  // host.
  IndexDatabase(const std::string& path, std::string_view furtherTables,
                std::string_view identity = {});
  ~IndexDatabase();
  IndexDatabase(const IndexDatabase&) = delete;
  IndexDatabase& operator=(const IndexDatabase&) = delete;

  // A statement for reading, kept for the next time.
  sqlite::Statement& reading(std::string_view sql) { return connection_.cached(sql); }
  // The same for a change. All changes from the first of them until commit() are one transaction.
  sqlite::Statement& changing(std::string_view sql);

  // Notes what tells this account from every other one, also after its index was made anew; a
  // database that has an identity keeps it. Becomes durable with the next commit().
  void identify(std::string_view identity);

  // The number of changes that the next commit() makes durable.
  std::size_t pending() const { return pending_; }
  void commit();
  void rollback() noexcept;
  // Moves the write-ahead log into the database file.
  void checkpoint();

 private:
  void prepareTables(const std::string& path, std::string_view furtherTables,
                     std::string_view identity);

  sqlite::Connection connection_;
  std::size_t pending_ = 0;
};

// Drops at the end of the scope what has been changed, unless it is to be kept.
class IndexChanges {
 public:
  explicit IndexChanges(IndexDatabase& database) : database_(database) {}
  ~IndexChanges() {
    if (!kept_) database_.rollback();
  }
  IndexChanges(const IndexChanges&) = delete;
  IndexChanges& operator=(const IndexChanges&) = delete;

  void keep() {
    database_.commit();
    kept_ = true;
  }

 private:
  IndexDatabase& database_;
  bool kept_ = false;
};

}  // namespace tulo::host
