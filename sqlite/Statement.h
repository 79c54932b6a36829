// A prepared statement behind an owning handle.
//
// Threads: belongs to one thread at a time, together with its connection, which outlives it.
// Errors: DatabaseError.
#pragma once

#include <sqlite3.h>

#include <chrono>
#include <concepts>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace tulo::sqlite {

// Bound as TEXT, where bytes by themselves are bound as a blob: for tables whose readers compare
// with text. Bytes that are not UTF-8 are carried as they are.
struct Text {
  std::string_view bytes;
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
  // Numbers that have a type of their own.
  template <typename Value>
  requires requires(const Value& value) {
    { value.number() } -> std::same_as<std::uint64_t>;
  }
  void bindOne(int index, const Value& value) { bindOne(index, value.number()); }
  // Times count in the unit of their type.
  template <typename Rep, typename Period>
  void bindOne(int index, std::chrono::duration<Rep, Period> value) {
    bindOne(index, static_cast<std::int64_t>(value.count()));
  }
  template <typename Duration>
  void bindOne(int index, std::chrono::sys_time<Duration> value) {
    bindOne(index, value.time_since_epoch());
  }
  // The text must stay until the statement is reset.
  void bindOne(int index, std::string_view value);
  void bindOne(int index, Text value);
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

}  // namespace tulo::sqlite
