#include "service/listing/IndexProbe.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <optional>
#include <string_view>

#include "platform/FileProvider.h"
#include "platform/linux/FileDescriptor.h"
#include "service/base/FileMark.h"
#include "sqlite/Connection.h"

namespace tulo {

namespace {

constexpr std::string_view kFolderMark = "f:";
constexpr std::string_view kFileMark = "i:";

// The columns are named because the provider names them: it reads nothing from an index that lacks
// one.
constexpr const char* kFoldersIn =
    "SELECT count(*) FROM (SELECT ulid,name,parent_ulid FROM folders WHERE parent_ulid IS ?)";
constexpr const char* kFilesIn =
    "SELECT count(*) FROM (SELECT ulid,name,folder_ulid,size,mtime_unix,version_number,"
    "locked_by_user_id FROM items WHERE folder_ulid IS ?)";
constexpr const char* kFolder =
    "SELECT count(*) FROM (SELECT ulid,name,parent_ulid FROM folders WHERE ulid=?)";
constexpr const char* kFile =
    "SELECT count(*) FROM (SELECT ulid,name,folder_ulid,size,mtime_unix,version_number,"
    "locked_by_user_id FROM items WHERE ulid=?)";

std::int64_t count(sqlite::Connection& index, const char* sql,
                   const std::optional<std::string_view>& key) {
  sqlite::Statement statement = index.prepare(sql);
  if (key) {
    statement.bind(sqlite::Text{*key});
  } else {
    statement.bind(nullptr);
  }
  return statement.step() ? statement.integer(0) : 0;
}

std::int64_t countIn(sqlite::Connection& index, const std::optional<std::string_view>& folder) {
  return count(index, kFoldersIn, folder) + count(index, kFilesIn, folder);
}

}  // namespace

bool IndexProbe::isServed(const std::string& index, const std::string& host) const {
  if (index_.empty() || index == index_) return true;
  if (!host.empty() && host != host_) return true;
  if (newIndex_ != index) {
    newIndex_ = index;
    newSince_ = Clock::now();
  }
  return Clock::now() - newSince_ >= patience_;
}

void IndexProbe::expectServed() const {
  const std::string index = fileMark(path_);
  const std::string host = fileMark(socket_);
  const MutexLock lock(mutex_);
  if (!isServed(index, host)) {
    throw SourceError(EHOSTDOWN, "the index is a new one, which no host serves yet");
  }
  index_ = index;
  host_ = host;
}

int IndexProbe::whyClosed() const {
  struct stat status = {};
  if (::stat(path_.c_str(), &status) != 0) return EHOSTDOWN;
  const FileDescriptor any(::open("/", O_PATH | O_CLOEXEC));
  return !any && (errno == EMFILE || errno == ENFILE) ? errno : EIO;
}

std::int64_t IndexProbe::ask(const std::function<std::int64_t(sqlite::Connection&)>& question) const
    try {
  sqlite::Connection index(path_, sqlite::Connection::Mode::readOnly);
  index.execute("PRAGMA busy_timeout=3000");
  const std::int64_t answer = question(index);
  expectServed();
  return answer;
} catch (const sqlite::DatabaseError& error) {
  throw SourceError(error.code() == SQLITE_CANTOPEN ? whyClosed() : EIO, error.what());
}

std::int64_t IndexProbe::children(const std::string& container) const {
  const std::string_view identifier = container;
  const bool isRoot = container == platform::NSFileProviderRootContainerItemIdentifier();
  if (!isRoot && !identifier.starts_with(kFolderMark)) return 0;
  return ask([&](sqlite::Connection& index) {
    return isRoot ? countIn(index, std::nullopt)
                  : countIn(index, identifier.substr(kFolderMark.size()));
  });
}

bool IndexProbe::has(const std::string& item) const {
  const std::string_view identifier = item;
  const bool isFolder = identifier.starts_with(kFolderMark);
  if (!isFolder && !identifier.starts_with(kFileMark)) return false;
  const std::string_view key = identifier.substr(kFolderMark.size());
  return ask([&](sqlite::Connection& index) {
           return count(index, isFolder ? kFolder : kFile, key);
         }) > 0;
}

}  // namespace tulo
