// The floors of reading the index: SQLite alone, asked the same statements.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

namespace tulo::bench {

// The columns of one row, as they come.
struct BareRow {
  std::string ulid;
  std::string name;
  std::string parent;
  std::int64_t numbers[4];
};

class BareIndex {
 public:
  // Read-only, by URI, with a busy time-out. Aborts when that fails, as every member does.
  explicit BareIndex(const std::string& path);

  // Each row's columns copied into strings and kept.
  std::vector<BareRow> children(const std::string& folder) const;
  // Each row's columns copied into the same strings over and over.
  std::size_t childrenForgotten(const std::string& folder) const;

  BareRow folder(const std::string& ulid) const;
  // The row, then its siblings: files and folders stepped through, ULIDs and names looked at.
  BareRow fileWithSiblings(const std::string& ulid) const;

 private:
  struct Close {
    void operator()(sqlite3* handle) const noexcept;
  };
  std::unique_ptr<sqlite3, Close> db_;
};

}  // namespace tulo::bench
