#include "tests/support/IndexBuilder.h"

#include <sqlite3.h>

#include <cstdio>
#include <fstream>
#include <stdexcept>

namespace tulo::test {
namespace {

constexpr const char* schema =
    "CREATE TABLE IF NOT EXISTS folders (ulid, name, parent_ulid);"
    "CREATE TABLE IF NOT EXISTS items (ulid, name, folder_ulid, size, mtime_unix, version_number,"
    " locked_by_user_id);"
    "CREATE INDEX IF NOT EXISTS folders_ulid ON folders (ulid);"
    "CREATE INDEX IF NOT EXISTS folders_parent ON folders (parent_ulid, name);"
    "CREATE INDEX IF NOT EXISTS items_ulid ON items (ulid);"
    "CREATE INDEX IF NOT EXISTS items_folder ON items (folder_ulid, name);";

[[noreturn]] void fail(sqlite3* db, const std::string& what) {
  throw std::runtime_error(what + ": " + sqlite3_errmsg(db));
}

struct Finalize {
  void operator()(sqlite3_stmt* statement) const noexcept { sqlite3_finalize(statement); }
};
using Statement = std::unique_ptr<sqlite3_stmt, Finalize>;

struct Binder {
  sqlite3_stmt* statement;
  int position;

  int operator()(std::nullptr_t) const { return sqlite3_bind_null(statement, position); }
  int operator()(std::int64_t number) const {
    return sqlite3_bind_int64(statement, position, number);
  }
  int operator()(double number) const { return sqlite3_bind_double(statement, position, number); }
  int operator()(const std::string& text) const {
    return sqlite3_bind_text(statement, position, text.data(), static_cast<int>(text.size()),
                             nullptr);
  }
  int operator()(const Blob& blob) const {
    return sqlite3_bind_blob(statement, position, blob.bytes.data(),
                             static_cast<int>(blob.bytes.size()), nullptr);
  }
};

template <typename T>
Value orNull(const std::optional<T>& value) {
  if (value) return *value;
  return nullptr;
}

}  // namespace

void IndexBuilder::Close::operator()(sqlite3* handle) const noexcept {
  sqlite3_close(handle);
}

IndexBuilder::IndexBuilder(const std::string& path) {
  sqlite3* handle = nullptr;
  const int result = sqlite3_open(path.c_str(), &handle);
  db_.reset(handle);
  if (result != SQLITE_OK) fail(handle, "opening " + path);
  // The files are thrown away; waiting for the disk would make every test slow.
  execute("PRAGMA synchronous = OFF").execute(schema);
}

IndexBuilder& IndexBuilder::folder(std::string_view ulid, std::string_view name,
                                   const std::optional<std::string>& parent) {
  return folderOf({std::string(ulid), std::string(name), orNull(parent)});
}

IndexBuilder& IndexBuilder::file(const FileRow& row) {
  return fileOf({row.ulid, row.name, orNull(row.folder), row.size, row.modified, row.version,
                 orNull(row.lockedBy)});
}

IndexBuilder& IndexBuilder::folderOf(const std::vector<Value>& values) {
  return insert("INSERT INTO folders VALUES (?, ?, ?)", values);
}

IndexBuilder& IndexBuilder::fileOf(const std::vector<Value>& values) {
  return insert("INSERT INTO items VALUES (?, ?, ?, ?, ?, ?, ?)", values);
}

IndexBuilder& IndexBuilder::execute(const std::string& sql) {
  if (sqlite3_exec(db_.get(), sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK)
    fail(db_.get(), sql);
  return *this;
}

IndexBuilder& IndexBuilder::insert(const std::string& sql, const std::vector<Value>& values) {
  sqlite3_stmt* prepared = nullptr;
  if (sqlite3_prepare_v2(db_.get(), sql.c_str(), -1, &prepared, nullptr) != SQLITE_OK)
    fail(db_.get(), sql);
  const Statement statement(prepared);
  for (std::size_t i = 0; i < values.size(); ++i) {
    const Binder binder{prepared, static_cast<int>(i) + 1};
    if (std::visit(binder, values[i]) != SQLITE_OK) fail(db_.get(), sql);
  }
  if (sqlite3_step(prepared) != SQLITE_DONE) fail(db_.get(), sql);
  return *this;
}

std::string ulidOf(std::int64_t number) {
  char digits[17];
  std::snprintf(digits, sizeof digits, "%016lld", static_cast<long long>(number));
  return "01HZX3K9QW" + std::string(digits);
}

void damage(const std::string& path, std::size_t offset, std::string_view bytes) {
  std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
  file.seekp(static_cast<std::streamoff>(offset));
  file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  if (!file.flush()) throw std::runtime_error("damaging " + path);
}

}  // namespace tulo::test
