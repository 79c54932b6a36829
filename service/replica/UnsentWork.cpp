#include "service/replica/UnsentWork.h"

#include <unistd.h>

#include <filesystem>
#include <vector>

#include "service/base/MarkedName.h"
#include "service/errors/ContentError.h"
#include "service/replica/Ancestors.h"
#include "service/replica/ContentInventory.h"
#include "service/replica/ContentStore.h"
#include "service/replica/Node.h"
#include "service/replica/Schema.h"
#include "sqlite/Connection.h"

namespace tulo {

namespace {

namespace fs = std::filesystem;

struct UnsentFile {
  ContentId content;
  NodeId parent;
  std::string name;
};

bool hasDatabase(const std::string& directory) {
  std::error_code error;
  return fs::exists(directory + "/replica.db", error);
}

sqlite::Connection open(const std::string& directory) {
  sqlite::Connection database(directory + "/replica.db", sqlite::Connection::Mode::create);
  schema::bringUpToDate(database);
  return database;
}

std::int64_t countIn(const std::string& directory) {
  sqlite::Connection database = open(directory);
  return database.integer(
      "SELECT (SELECT count(*) FROM pending) + (SELECT count(*) FROM node WHERE identifier IS NULL "
      "AND parent IS NOT NULL AND id NOT IN (SELECT node FROM pending))");
}

ContentStore storeIn(const std::string& directory) {
  return {directory, directory, CacheLimits()};
}

std::vector<UnsentFile> filesIn(sqlite::Connection& database) {
  std::vector<UnsentFile> result;
  sqlite::Statement row = database.prepare(
      "SELECT n.content, n.parent, n.name FROM node n JOIN pending p ON p.node = n.id "
      "WHERE p.contents = 1 AND p.deleted = 0 AND n.content <> 0");
  while (row.step()) {
    result.push_back({ContentId(static_cast<std::uint64_t>(row.integer(0))),
                      NodeId(static_cast<std::uint64_t>(row.integer(1))),
                      std::string(row.text(2))});
  }
  return result;
}

fs::path placeOf(sqlite::Connection& database, const UnsentFile& file) {
  fs::path place = file.name;
  sqlite::Statement above = database.prepare("SELECT parent, name FROM node WHERE id = ?");
  NodeId at = file.parent;
  for (std::size_t depth = 0; depth < kDeepest && at != kRootNode; ++depth) {
    if (!above.bind(at).step()) break;
    place = fs::path(std::string(above.text(1))) / place;
    at = NodeId(static_cast<std::uint64_t>(above.integer(0)));
  }
  return place;
}

fs::path freePath(const fs::path& wanted) {
  fs::path path = wanted;
  std::error_code error;
  for (int number = 2; fs::exists(fs::symlink_status(path, error)); ++number) {
    path = wanted.parent_path() /
           markedName(wanted.filename().string(), " (" + std::to_string(number) + ")");
  }
  return path;
}

void layOut(const fs::path& contents, const fs::path& wanted) {
  std::error_code error;
  fs::create_directories(wanted.parent_path(), error);
  const fs::path path = freePath(wanted);
  if (::link(contents.c_str(), path.c_str()) == 0) return;
  fs::copy_file(contents, path, error);
  if (error)
    throw ContentError(error.value(), "cannot make " + path.string() + ": " + error.message());
}

// Where no rows say what there is, the files of contents do.
void layOutNamed(const ContentStore& store, const fs::path& to) {
  for (const inventory::NamedContents& file : inventory::named(store))
    layOut(file.path, to / file.name);
}

}  // namespace

std::int64_t unsentIn(const std::string& directory) {
  try {
    if (hasDatabase(directory)) return countIn(directory);
    return static_cast<std::int64_t>(inventory::named(storeIn(directory)).size());
  } catch (const std::exception&) {
    return 1;
  }
}

void layOutUnsent(const std::string& directory, const std::string& to) {
  const ContentStore store = storeIn(directory);
  try {
    if (!hasDatabase(directory)) return layOutNamed(store, to);
    sqlite::Connection database = open(directory);
    for (const UnsentFile& file : filesIn(database))
      layOut(store.path(file.content), to / placeOf(database, file));
  } catch (const sqlite::DatabaseError&) {
    layOutNamed(store, to);
  }
}

}  // namespace tulo
