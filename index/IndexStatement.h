// A prepared statement of the index database.
//
// Threads: as the connection that it belongs to, which must outlive it.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace tulo {

class IndexStatement {
 public:
  // Holds nothing; step() gives no row.
  IndexStatement() = default;

  // Holds nothing when SQLite cannot prepare the text.
  IndexStatement(sqlite3* db, const char* sql) {
    sqlite3_stmt* prepared = nullptr;
    sqlite3_prepare_v2(db, sql, -1, &prepared, nullptr);
    handle_.reset(prepared);
  }

  explicit operator bool() const { return handle_ != nullptr; }

  // Binds the statement's only parameter. SQLite copies the text.
  void bind(const std::string& text) {
    sqlite3_bind_text(handle_.get(), 1, text.c_str(), -1, SQLITE_TRANSIENT);
  }

  // True on a row. Whatever else ends the rows: done, still locked after the busy time-out, damage.
  bool step() { return handle_ && sqlite3_step(handle_.get()) == SQLITE_ROW; }

  // Columns of the current row, counted from 0. What is NULL reads as empty or 0, except where the
  // result is optional. A view is valid until the next step.
  std::string_view view(int column) const {
    const unsigned char* text = sqlite3_column_text(handle_.get(), column);
    return text ? reinterpret_cast<const char*>(text) : std::string_view();
  }
  std::string text(int column) const { return std::string(view(column)); }
  std::int64_t integer(int column) const { return sqlite3_column_int64(handle_.get(), column); }
  std::optional<std::string> optionalText(int column) const {
    const std::string_view value = view(column);
    if (value.data() == nullptr && isNull(column)) return std::nullopt;
    return std::string(value);
  }
  std::optional<std::int64_t> optionalInteger(int column) const {
    if (isNull(column)) return std::nullopt;
    return integer(column);
  }

 private:
  struct Finalize {
    void operator()(sqlite3_stmt* handle) const noexcept { sqlite3_finalize(handle); }
  };

  bool isNull(int column) const {
    return sqlite3_column_type(handle_.get(), column) == SQLITE_NULL;
  }

  std::unique_ptr<sqlite3_stmt, Finalize> handle_;
};

}  // namespace tulo
