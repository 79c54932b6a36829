#include "bench/BareIndex.h"

#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace tulo::bench {
namespace {

constexpr const char* foldersInFolder =
    "SELECT ulid, name, parent_ulid FROM folders WHERE parent_ulid = ? ORDER BY name";
constexpr const char* filesInFolder =
    "SELECT ulid, name, folder_ulid, size, mtime_unix, version_number, locked_by_user_id"
    " FROM items WHERE folder_ulid = ? ORDER BY name";
constexpr const char* oneFolder =
    "SELECT ulid, name, parent_ulid FROM folders WHERE ulid = ? LIMIT 1";
constexpr const char* oneFile =
    "SELECT ulid, name, folder_ulid, size, mtime_unix, version_number, locked_by_user_id\n"
    "FROM items WHERE ulid = ? LIMIT 1";

void expect(bool isTrue, const char* what) {
  if (isTrue) return;
  std::fprintf(stderr, "benchmark: %s failed\n", what);
  std::abort();
}

struct Finalize {
  void operator()(sqlite3_stmt* statement) const noexcept { sqlite3_finalize(statement); }
};
using Statement = std::unique_ptr<sqlite3_stmt, Finalize>;

Statement prepared(sqlite3* db, const char* sql, const std::string& ulid) {
  sqlite3_stmt* statement = nullptr;
  expect(sqlite3_prepare_v2(db, sql, -1, &statement, nullptr) == SQLITE_OK, sql);
  sqlite3_bind_text(statement, 1, ulid.c_str(), -1, SQLITE_TRANSIENT);
  return Statement(statement);
}

const char* textOf(sqlite3_stmt* row, int column) {
  const auto* text = sqlite3_column_text(row, column);
  return text != nullptr ? reinterpret_cast<const char*>(text) : "";
}

void copyRow(sqlite3_stmt* row, BareRow& into) {
  into.ulid = textOf(row, 0);
  into.name = textOf(row, 1);
  into.parent = textOf(row, 2);
  const int columns = sqlite3_column_count(row);
  for (int column = 3; column < columns; ++column)
    into.numbers[column - 3] = sqlite3_column_int64(row, column);
}

BareRow firstRow(const Statement& statement) {
  expect(sqlite3_step(statement.get()) == SQLITE_ROW, "finding a row");
  BareRow row{};
  copyRow(statement.get(), row);
  return row;
}

}  // namespace

void BareIndex::Close::operator()(sqlite3* handle) const noexcept {
  sqlite3_close(handle);
}

BareIndex::BareIndex(const std::string& path) {
  sqlite3* handle = nullptr;
  const std::string uri = "file:" + path + "?mode=ro";
  const int result =
      sqlite3_open_v2(uri.c_str(), &handle, SQLITE_OPEN_READONLY | SQLITE_OPEN_URI, nullptr);
  db_.reset(handle);
  expect(result == SQLITE_OK, "opening the index");
  sqlite3_busy_timeout(handle, 3000);
}

std::vector<BareRow> BareIndex::children(const std::string& folder) const {
  std::vector<BareRow> rows;
  for (const char* sql : {foldersInFolder, filesInFolder}) {
    const Statement statement = prepared(db_.get(), sql, folder);
    while (sqlite3_step(statement.get()) == SQLITE_ROW)
      copyRow(statement.get(), rows.emplace_back());
  }
  return rows;
}

std::size_t BareIndex::childrenForgotten(const std::string& folder) const {
  std::size_t count = 0;
  BareRow row{};
  for (const char* sql : {foldersInFolder, filesInFolder}) {
    const Statement statement = prepared(db_.get(), sql, folder);
    for (; sqlite3_step(statement.get()) == SQLITE_ROW; ++count) {
      copyRow(statement.get(), row);
      benchmark::DoNotOptimize(row);
    }
  }
  return count;
}

BareRow BareIndex::folder(const std::string& ulid) const {
  return firstRow(prepared(db_.get(), oneFolder, ulid));
}

BareRow BareIndex::fileWithSiblings(const std::string& ulid) const {
  BareRow row = firstRow(prepared(db_.get(), oneFile, ulid));
  std::size_t length = 0;
  for (const char* sql : {filesInFolder, foldersInFolder}) {
    const Statement statement = prepared(db_.get(), sql, row.parent);
    while (sqlite3_step(statement.get()) == SQLITE_ROW)
      length += std::strlen(textOf(statement.get(), 0)) + std::strlen(textOf(statement.get(), 1));
  }
  benchmark::DoNotOptimize(length);
  return row;
}

}  // namespace tulo::bench
