#include "tests/host/HostFixture.h"

#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <filesystem>

#include "host/server/Client.h"
#include "platform/linux/FileDescriptor.h"
#include "tests/support/Connection.h"

namespace tulo::test {

namespace fs = std::filesystem;

namespace {

std::string textOf(sqlite3_stmt* statement, int column) {
  const unsigned char* text = sqlite3_column_text(statement, column);
  return text == nullptr ? std::string() : reinterpret_cast<const char*>(text);
}

std::optional<std::string> optionalTextOf(sqlite3_stmt* statement, int column) {
  if (sqlite3_column_type(statement, column) == SQLITE_NULL) return std::nullopt;
  return textOf(statement, column);
}

using StatementPointer = std::unique_ptr<sqlite3_stmt, int (*)(sqlite3_stmt*)>;

StatementPointer prepared(sqlite3* db, const std::string& sql) {
  sqlite3_stmt* statement = nullptr;
  EXPECT_EQ(sqlite3_prepare_v2(db, sql.c_str(), -1, &statement, nullptr), SQLITE_OK)
      << sql << ": " << sqlite3_errmsg(db);
  return {statement, sqlite3_finalize};
}

}  // namespace

IndexReader::IndexReader(const std::string& path) {
  sqlite3* db = nullptr;
  const std::string uri = "file:" + path + "?mode=ro";
  const int flags = SQLITE_OPEN_READONLY | SQLITE_OPEN_URI;
  const int result = sqlite3_open_v2(uri.c_str(), &db, flags, nullptr);
  db_.reset(db);
  if (result == SQLITE_OK) {
    sqlite3_busy_timeout(db, 3000);
  } else {
    db_.reset();
  }
}

std::vector<std::string> IndexReader::column(const std::string& sql) const {
  std::vector<std::string> values;
  const auto statement = prepared(db_.get(), sql);
  int result = SQLITE_DONE;
  while (statement && (result = sqlite3_step(statement.get())) == SQLITE_ROW) {
    values.push_back(textOf(statement.get(), 0));
  }
  EXPECT_EQ(result, SQLITE_DONE) << sql << ": " << sqlite3_errmsg(db_.get());
  return values;
}

std::map<std::string, IndexRow> IndexReader::rows() const {
  std::map<std::string, IndexRow> byUlid;
  const auto folders = prepared(db_.get(), "SELECT ulid, name, parent_ulid FROM folders");
  while (folders && sqlite3_step(folders.get()) == SQLITE_ROW) {
    IndexRow row;
    row.ulid = textOf(folders.get(), 0);
    row.name = textOf(folders.get(), 1);
    row.parent = optionalTextOf(folders.get(), 2);
    row.isFolder = true;
    byUlid[row.ulid] = row;
  }
  const auto items = prepared(
      db_.get(),
      "SELECT ulid, name, folder_ulid, size, mtime_unix, version_number, locked_by_user_id "
      "FROM items");
  while (items && sqlite3_step(items.get()) == SQLITE_ROW) {
    IndexRow row;
    row.ulid = textOf(items.get(), 0);
    row.name = textOf(items.get(), 1);
    row.parent = optionalTextOf(items.get(), 2);
    row.size = sqlite3_column_int64(items.get(), 3);
    row.modified = sqlite3_column_int64(items.get(), 4);
    row.version = sqlite3_column_int64(items.get(), 5);
    if (optionalTextOf(items.get(), 6)) row.lockedBy = sqlite3_column_int64(items.get(), 6);
    byUlid[row.ulid] = row;
  }
  std::map<std::string, IndexRow> byPath;
  for (const auto& [ulid, row] : byUlid) {
    std::string path = row.name;
    for (auto parent = row.parent; parent; parent = byUlid[*parent].parent) {
      path = (byUlid.contains(*parent) ? byUlid[*parent].name : "?") + "/" + path;
    }
    byPath[path] = row;
  }
  return byPath;
}

HostTest::HostTest() : root_(directory_.file("root")), container_(directory_.file("container")) {
  fs::create_directory(root_);
}

void HostTest::makeFolder(std::string_view path) const {
  fs::create_directories(inRoot(path));
}

void HostTest::makeFile(std::string_view path, std::string_view bytes) const {
  writeFile(inRoot(path), bytes);
}

host::HostOptions HostTest::options() const {
  host::HostOptions options;
  options.root = root_;
  options.container = container_;
  return options;
}

void HostTest::startHost(host::HostOptions options) {
  host_ = std::make_unique<host::Host>(std::move(options));
  host_->start();
}

json HostTest::ask(json request) const {
  if (!request.contains("account")) request["account"] = "primary";
  return json::parse(host::askHost(container_, request.dump()));
}

std::string HostTest::exchange(std::string_view bytes) const {
  const FileDescriptor fd = connected(inContainer("fp.sock"));
  if (!fd) {
    ADD_FAILURE() << "nobody listens on " << inContainer("fp.sock");
    return {};
  }
  while (!bytes.empty()) {
    const ssize_t count = ::send(fd.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (count <= 0) break;
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  std::string reply;
  std::array<char, 65536> buffer;
  ssize_t count = 0;
  while ((count = ::recv(fd.get(), buffer.data(), buffer.size(), 0)) > 0) {
    reply.append(buffer.data(), static_cast<std::size_t>(count));
  }
  return reply;
}

std::string HostTest::stage(std::string_view bytes) {
  const std::string path = inContainer("fp-upload") + "/" + stagedName();
  writeFile(path, bytes);
  return path;
}

std::vector<std::string> HostTest::entriesOf(const std::string& folder) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(folder)) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::map<std::string, IndexRow> HostTest::rows(const std::string& database) const {
  const IndexReader reader(inContainer(database));
  EXPECT_TRUE(reader.isOpen());
  return reader.isOpen() ? reader.rows() : std::map<std::string, IndexRow>{};
}

std::vector<std::string> HostTest::paths(const std::string& database) const {
  std::vector<std::string> paths;
  for (const auto& [path, row] : rows(database))
    paths.push_back(row.isFolder ? path + "/" : path);
  return paths;
}

IndexRow HostTest::row(const std::string& path) const {
  const auto all = rows();
  const auto found = all.find(path);
  if (found != all.end()) return found->second;
  ADD_FAILURE() << "no row for " << path;
  return {};
}

json HostTest::create(const std::string& name, std::string_view bytes, const std::string& parent) {
  json request{{"op", "create"}, {"name", name}, {"path", stage(bytes)}};
  if (!parent.empty()) request["parent"] = parent;
  return ask(request);
}

json HostTest::createFolder(const std::string& name, const std::string& parent) {
  json request{{"op", "create"}, {"name", name}};
  if (!parent.empty()) request["parent"] = parent;
  return ask(request);
}

json failure(std::string_view kind, std::string_view message) {
  return {{"ok", false}, {"kind", kind}, {"error", message}};
}

std::string kindOf(const json& reply) {
  EXPECT_EQ(reply.value("ok", true), false) << reply;
  return reply.value("kind", "");
}

}  // namespace tulo::test
