#include "service/replica/AccountFolder.h"

#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>

#include "service/base/ServiceLog.h"
#include "service/errors/ContentError.h"
#include "service/replica/UnsentWork.h"

namespace tulo {

namespace {

namespace fs = std::filesystem;

constexpr const char* kNote = "account";
constexpr const char* kKept = "kept";
// While a replica is moved there or back; whoever finds one finishes that.
constexpr const char* kLeaving = "kept/leaving";
constexpr const char* kReturning = "kept/returning";
// What a replica consists of. The note goes last and says until then whose the rest is.
constexpr std::array<const char*, 6> kParts = {
    "contents", "replica.db-wal", "replica.db-shm", "replica.db.suspect", "replica.db", kNote};

bool exists(const std::string& path) {
  struct stat status = {};
  return ::lstat(path.c_str(), &status) == 0;
}

void makeFolder(const std::string& path) {
  if (::mkdir(path.c_str(), 0700) != 0 && errno != EEXIST) {
    throw ContentError(errno, "cannot create " + path + ": " + std::strerror(errno));
  }
}

void move(const std::string& from, const std::string& to) {
  if (::rename(from.c_str(), to.c_str()) != 0 && errno != ENOENT) {
    throw ContentError(errno, "cannot move " + from + ": " + std::strerror(errno));
  }
}

void remove(const std::string& path) {
  std::error_code error;
  fs::remove_all(path, error);
  if (error) throw ContentError(error.value(), "cannot remove " + path + ": " + error.message());
}

bool isNumber(const std::string& name) {
  return !name.empty() && name.find_first_not_of("0123456789") == std::string::npos;
}

}  // namespace

AccountFolder::Change AccountFolder::settle(const AccountIdentity& found) {
  resume();
  if (!exists(path(kNote)) && !exists(path("replica.db"))) bringBack(found);
  const auto noted = readIdentity(path(kNote));
  if (!noted || belongsHere(*noted, found)) {
    const AccountIdentity known = noted ? joined(*noted, found) : found;
    if (known != noted) noteIfPossible(known);
    return Change::none;
  }
  const Change left = leave();
  const bool returned = bringBack(found);
  const auto former = readIdentity(path(kNote));
  writeIdentity(path(kNote), former ? joined(*former, found) : found);
  return returned && left == Change::begun ? Change::returned : left;
}

// What is here is of the account anyway, so a full disk must not keep a service from starting.
void AccountFolder::noteIfPossible(const AccountIdentity& identity) const {
  try {
    writeIdentity(path(kNote), identity);
  } catch (const ContentError& error) {
    serviceLog().error("cannot note whose the replica is: %{public}@", {error.what()});
  }
}

// One that is kept and is surely of this account comes before one that only seems to be.
bool AccountFolder::belongsHere(const AccountIdentity& noted, const AccountIdentity& found) const {
  if (!areOfOneAccount(noted, found)) return false;
  if (found.account.empty() || !noted.account.empty()) return true;
  for (const KeptReplica& each : kept()) {
    if (each.identity.account == found.account) return false;
  }
  return true;
}

AccountFolder::Change AccountFolder::leave() const {
  if (unsentIn(directory_) == 0) {
    discard();
    return Change::begun;
  }
  setAside();
  return Change::setAside;
}

// In the order that keeps the note until the end.
void AccountFolder::discard() const {
  remove(path("replica.db"));
  for (const char* part : kParts)
    remove(path(part));
}

void AccountFolder::setAside() const {
  makeFolder(path(kKept));
  makeFolder(path(kLeaving));
  finishSettingAside();
}

void AccountFolder::finishSettingAside() const {
  for (const char* part : kParts)
    move(path(part), path(kLeaving) + '/' + part);
  const std::string files = path(kLeaving) + "/files";
  try {
    remove(files);
    layOutUnsent(path(kLeaving), files);
  } catch (const std::exception& error) {
    serviceLog().error("cannot lay out what was not sent in %{public}@: %{public}@",
                       {files, error.what()});
  }
  for (int number = 1;; ++number) {
    const std::string to = path(kKept) + '/' + std::to_string(number);
    if (exists(to)) continue;
    move(path(kLeaving), to);
    return;
  }
}

bool AccountFolder::bringBack(const AccountIdentity& found) const {
  const std::vector<KeptReplica> all = kept();
  const KeptReplica* best = nullptr;
  for (const KeptReplica& each : all) {
    if (!areOfOneAccount(each.identity, found)) continue;
    const bool sure = !found.account.empty() && each.identity.account == found.account;
    if (!best || sure) best = &each;
  }
  if (!best) return false;
  move(best->folder, path(kReturning));
  finishReturning();
  return true;
}

void AccountFolder::finishReturning() const {
  // They share their bytes with the contents, which are written to again from now on.
  remove(path(kReturning) + "/files");
  for (const char* part : kParts)
    move(path(kReturning) + '/' + part, path(part));
  remove(path(kReturning));
}

void AccountFolder::resume() const {
  if (exists(path(kLeaving))) finishSettingAside();
  if (exists(path(kReturning))) finishReturning();
}

std::vector<KeptReplica> AccountFolder::kept() const {
  std::vector<KeptReplica> result;
  std::error_code error;
  for (fs::directory_iterator at(path(kKept), error), end; !error && at != end;
       at.increment(error)) {
    const std::string folder = at->path();
    const auto identity = readIdentity(folder + '/' + kNote);
    if (!isNumber(at->path().filename()) || !identity) continue;
    result.push_back({folder, *identity, unsentIn(folder)});
  }
  return result;
}

}  // namespace tulo
