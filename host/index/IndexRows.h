// The rows of an index that the extension reads: folders and files, their names, versions, locks.
//
// Threads: not thread-safe; the account guards it. Errors: sqlite::DatabaseError.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/index/IndexDatabase.h"

namespace tulo::host {

// The identifier that stands for an account's top level where a parent is meant.
inline constexpr std::string_view rootUlid;

// What the extension sees of a file, of that which a request may need.
struct FileRow {
  std::int64_t version = 0;
  std::int64_t size = 0;
  std::optional<std::int64_t> lockedBy;
};

// What is new in a file whose contents have changed.
struct FileContents {
  std::int64_t size = 0;
  std::chrono::sys_seconds modified;
};

struct Counts {
  std::int64_t folders = 0;
  std::int64_t items = 0;
};

class IndexRows {
 public:
  // The database must outlive the object.
  explicit IndexRows(IndexDatabase& database) : database_(database) {}

  // The name under which a folder or file is shown; empty where there is none.
  std::string nameOf(std::string_view ulid);
  std::optional<FileRow> file(std::string_view ulid);
  // The folder in `parent` that is shown under exactly this name.
  std::optional<std::string> folderNamed(std::string_view parent, std::string_view name);
  bool hasLockBelow(std::string_view folder);
  std::int64_t totalSize();
  Counts counts();
  // Empty where there is no row.
  std::string greatestUlid();

  void addFolder(std::string_view ulid, std::string_view parent, std::string_view name);
  // With the first version.
  void addFile(std::string_view ulid, std::string_view parent, std::string_view name,
               const FileContents& contents);
  void place(std::string_view ulid, std::string_view parent, std::string_view name);
  // Makes a new version.
  void setContents(std::string_view ulid, const FileContents& contents);
  void setLock(std::string_view ulid, std::optional<std::int64_t> user);
  // Removes a folder or file and all below it; returns the folders among them, the one itself
  // always, whatever it was.
  std::vector<std::string> remove(std::string_view ulid);

 private:
  IndexDatabase& database_;
};

}  // namespace tulo::host
