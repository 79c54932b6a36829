#include "service/replica/ReplicaFile.h"

#include <ctime>
#include <filesystem>
#include <fstream>

#include "service/replica/GatheringLog.h"
#include "service/replica/Schema.h"
#include "sqlite/Connection.h"

namespace tulo {

namespace {

void configure(sqlite::Connection& database) {
  database.execute(
      "PRAGMA journal_mode=WAL;"
      "PRAGMA synchronous=NORMAL;"
      "PRAGMA journal_size_limit=67108864;");
}

void create(const std::string& path) {
  sqlite::Connection database(path, sqlite::Connection::Mode::create, gatheringVfs());
  configure(database);
  schema::bringUpToDate(database);
}

// Beside the database as long as it is not known whether it is whole.
std::string suspicion(const std::string& path) {
  return path + ".suspect";
}

bool isSuspect(const std::string& path) {
  std::error_code error;
  return std::filesystem::exists(suspicion(path), error);
}

// Reads all of it, so it is done only where there is reason to.
void checkWhole(const std::string& path) {
  sqlite::Connection database(path, sqlite::Connection::Mode::create);
  sqlite::Statement check = database.prepare("PRAGMA quick_check(1)");
  if (!check.step() || check.text(0) != "ok") {
    throw sqlite::DatabaseError(SQLITE_CORRUPT, "replica.db is damaged");
  }
}

// What is there and is no file cannot be a database either.
bool isNoFile(const std::string& path) {
  std::error_code error;
  return std::filesystem::exists(path, error) && !std::filesystem::is_regular_file(path, error);
}

// The clock may have been set back since another one got its name.
std::string freeName(const std::string& path) {
  const std::string name = path + ".damaged-" + std::to_string(std::time(nullptr));
  std::string free = name;
  std::error_code ignored;
  for (unsigned i = 2; std::filesystem::exists(free, ignored); ++i)
    free = name + '-' + std::to_string(i);
  return free;
}

// Returns the name that it has now.
std::string putAside(const std::string& path) {
  const std::string aside = freeName(path);
  for (const char* suffix : {"", "-wal", "-shm"}) {
    std::error_code ignored;
    std::filesystem::rename(path + suffix, aside + suffix, ignored);
  }
  return aside;
}

}  // namespace

ReplicaFile::ReplicaFile(const std::string& directory) : path_(directory + "/replica.db") {
  try {
    create(path_);
    if (isSuspect(path_)) checkWhole(path_);
  } catch (const sqlite::DatabaseError& error) {
    if (!error.meansDamage() && !isNoFile(path_)) throw;
    setAside_ = putAside(path_);
    create(path_);
  }
  std::error_code ignored;
  std::filesystem::remove(suspicion(path_), ignored);
}

void ReplicaFile::suspect(const sqlite::DatabaseError& error) const {
  if (error.meansDamage()) std::ofstream(suspicion(path_));
}

}  // namespace tulo
