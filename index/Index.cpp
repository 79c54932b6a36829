#include "index/Index.h"

#include <sqlite3.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <utility>

#include "index/Collisions.h"
#include "index/IndexStatement.h"
#include "platform/Deployment.h"
#include "platform/FileManager.h"
#include "platform/Log.h"

namespace tulo {
namespace {

constexpr int busyTimeoutMilliseconds = 3000;

constexpr std::string_view fileColumns =
    "ulid, name, folder_ulid, size, mtime_unix, version_number, locked_by_user_id";
constexpr const char* topLevelFolders =
    "SELECT ulid, name, parent_ulid FROM folders WHERE parent_ulid IS NULL ORDER BY name";
constexpr const char* foldersInFolder =
    "SELECT ulid, name, parent_ulid FROM folders WHERE parent_ulid = ? ORDER BY name";
constexpr const char* oneFolder =
    "SELECT ulid, name, parent_ulid FROM folders WHERE ulid = ? LIMIT 1";
constexpr const char* oneFile =
    "SELECT ulid, name, folder_ulid, size, mtime_unix, version_number, locked_by_user_id\n"
    "FROM items WHERE ulid = ? LIMIT 1";

std::string fileList(std::string_view condition) {
  return std::string("SELECT ").append(fileColumns).append(condition);
}

const std::string& topLevelFiles() {
  static const std::string sql = fileList(" FROM items WHERE folder_ulid IS NULL ORDER BY name");
  return sql;
}

const std::string& filesInOneFolder() {
  static const std::string sql = fileList(" FROM items WHERE folder_ulid = ? ORDER BY name");
  return sql;
}

const platform::Log& indexLog() {
  static const platform::Log log(std::string(deployment::hostBundleIdentifier) + ".fileprovider",
                                 "Index");
  return log;
}

const char* errorMessage(sqlite3* db) {
  if (const char* message = sqlite3_errmsg(db)) return message;
  std::fputs("tulo: SQLite reported an error without a message\n", stderr);
  std::abort();
}

// A prepared statement with the ULID bound where there is one; nothing when it cannot be prepared,
// which is logged, or when there is no database.
IndexStatement prepared(sqlite3* db, const char* sql, const std::optional<std::string>& ulid) {
  if (!db) return {};
  IndexStatement statement(db, sql);
  if (!statement) {
    indexLog().error("prepare failed: %{public}s", {errorMessage(db)});
  } else if (ulid) {
    statement.bind(*ulid);
  }
  return statement;
}

IndexEntry folderRow(const IndexStatement& row) {
  return {.ulid = row.text(0),
          .name = row.text(1),
          .parentUlid = row.optionalText(2),
          .isFolder = true,
          .size = 0,
          .modified = {},
          .versionNumber = 0,
          .lockedByUserId = {},
          .displayName = row.text(1)};
}

IndexEntry fileRow(const IndexStatement& row) {
  const std::string_view name = row.view(1);
  return {.ulid = row.text(0),
          .name = std::string(name),
          .parentUlid = row.optionalText(2),
          .isFolder = false,
          .size = row.integer(3),
          .modified = platform::Date(std::chrono::seconds(row.integer(4))),
          .versionNumber = row.integer(5),
          .lockedByUserId = row.optionalInteger(6),
          .displayName = std::string(name)};
}

template <typename Reader>
std::vector<IndexEntry> allRows(IndexStatement statement, Reader read) {
  std::vector<IndexEntry> rows;
  while (statement.step())
    rows.push_back(read(statement));
  return rows;
}

template <typename Reader>
std::optional<IndexEntry> firstRow(IndexStatement statement, Reader read) {
  if (!statement.step()) return std::nullopt;
  return read(statement);
}

// Names and ULIDs of a folder's rows in one block of memory: what a lookup needs of the siblings.
class Siblings {
 public:
  explicit Siblings(IndexStatement rows) {
    while (rows.step()) {
      const std::string_view ulid = rows.view(0);
      ends_.push_back({text_.size() + ulid.size(), 0});
      text_.append(ulid);
      text_.append(rows.view(1));
      ends_.back().name = text_.size();
    }
  }

  std::vector<Collisions::Entry> entries() const {
    std::vector<Collisions::Entry> result;
    result.reserve(ends_.size());
    const std::string_view text = text_;
    std::size_t begin = 0;
    for (const auto& end : ends_) {
      result.push_back(
          {text.substr(begin, end.ulid - begin), text.substr(end.ulid, end.name - end.ulid)});
      begin = end.name;
    }
    return result;
  }

 private:
  struct End {
    std::size_t ulid;
    std::size_t name;
  };

  std::string text_;
  std::vector<End> ends_;
};

const char* folderListFor(const std::optional<std::string>& parent) {
  return parent ? foldersInFolder : topLevelFolders;
}

const char* fileListFor(const std::optional<std::string>& parent) {
  return (parent ? filesInOneFolder() : topLevelFiles()).c_str();
}

std::vector<std::string_view> namesOf(const std::vector<IndexEntry>& entries) {
  std::vector<std::string_view> names;
  names.reserve(entries.size());
  for (const auto& entry : entries)
    names.push_back(entry.name);
  return names;
}

}  // namespace

void Index::Close::operator()(sqlite3* handle) const noexcept {
  sqlite3_close(handle);
}

Index::Index(Handle db) : db_(std::move(db)) {}

Index::~Index() = default;

std::unique_ptr<Index> Index::open(const std::string& appGroup, std::string_view databaseName) {
  const auto container = platform::FileManager::containerURL(appGroup);
  if (!container) {
    indexLog().error("app group %{public}@ did not resolve", {appGroup});
    return nullptr;
  }
  const std::string path = container->appendingPathComponent(databaseName).path();
  if (!platform::FileManager::fileExists(path)) {
    indexLog().info("no index at %{public}@ yet", {path});
    return nullptr;
  }
  // The path goes into the URI as it is: what it holds of a query is SQLite's to read.
  const std::string uri = "file:" + path + "?mode=ro";
  sqlite3* opened = nullptr;
  const int result =
      sqlite3_open_v2(uri.c_str(), &opened, SQLITE_OPEN_READONLY | SQLITE_OPEN_URI, nullptr);
  Handle db(opened);
  if (result != SQLITE_OK) {
    indexLog().error("opening index failed: %{public}s", {errorMessage(db.get())});
    return nullptr;
  }
  sqlite3_busy_timeout(db.get(), busyTimeoutMilliseconds);
  return std::unique_ptr<Index>(new Index(std::move(db)));
}

std::vector<IndexEntry> Index::foldersWithParent(const std::optional<std::string>& ulid) const {
  return allRows(prepared(db_.get(), folderListFor(ulid), ulid), folderRow);
}

std::vector<IndexEntry> Index::filesInFolder(const std::optional<std::string>& ulid) const {
  return allRows(prepared(db_.get(), fileListFor(ulid), ulid), fileRow);
}

std::vector<IndexEntry> Index::childrenOfFolder(const std::optional<std::string>& ulid) const {
  std::vector<IndexEntry> folders = foldersWithParent(ulid);
  std::vector<IndexEntry> files = filesInFolder(ulid);
  std::vector<Collisions::Entry> entries;
  entries.reserve(files.size());
  for (const auto& file : files)
    entries.push_back({file.ulid, file.name});
  for (auto& [position, name] : Collisions::marked(namesOf(folders), entries)) {
    files[position].displayName = std::move(name);
  }
  if (folders.empty()) return files;
  folders.reserve(folders.size() + files.size());
  std::move(files.begin(), files.end(), std::back_inserter(folders));
  return folders;
}

std::optional<IndexEntry> Index::entryForFolder(const std::string& ulid) const {
  return firstRow(prepared(db_.get(), oneFolder, ulid), folderRow);
}

std::optional<IndexEntry> Index::entryForFile(const std::string& ulid) const {
  std::optional<IndexEntry> entry = firstRow(prepared(db_.get(), oneFile, ulid), fileRow);
  if (!entry) return std::nullopt;
  const auto& parent = entry->parentUlid;
  const Siblings files(prepared(db_.get(), fileListFor(parent), parent));
  const Siblings folders(prepared(db_.get(), folderListFor(parent), parent));
  const auto siblings = files.entries();
  const auto self = std::find_if(siblings.begin(), siblings.end(),
                                 [&](const auto& sibling) { return sibling.ulid == ulid; });
  if (self == siblings.end()) return entry;  // it was moved away between the two reads
  std::vector<std::string_view> reserved;
  for (const auto& folder : folders.entries())
    reserved.push_back(folder.name);
  entry->displayName = Collisions::displayName(reserved, siblings,
                                               static_cast<std::size_t>(self - siblings.begin()));
  return entry;
}

std::int64_t Index::dataVersion() const {
  if (!db_) return 0;
  IndexStatement statement(db_.get(), "PRAGMA data_version");
  if (!statement || !statement.step()) return 0;
  return statement.integer(0);
}

}  // namespace tulo
