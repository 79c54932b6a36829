#include "host/account/Staging.h"

#include <fcntl.h>

#include <cerrno>

#include "host/account/Sweep.h"
#include "host/base/HostError.h"

namespace tulo::host {

namespace {

struct StagedPath {
  std::string folder;
  std::string name;
};

StagedPath splitPath(const std::string& path) {
  const auto slash = path.rfind('/');
  if (slash == std::string::npos || slash == 0) return {};
  return {path.substr(0, slash), path.substr(slash + 1)};
}

std::int64_t sizeOfTree(int folder, const std::string& name) {
  const auto stat = statEntry(folder, name);
  if (!stat || stat->isOther()) return 0;
  if (stat->isFile) return stat->size;
  std::int64_t total = 0;
  if (const FileDescriptor sub = openFolder(folder, name)) {
    forEachEntry(sub.get(),
                 [&](const std::string& child) { total += sizeOfTree(sub.get(), child); });
  }
  return total;
}

[[noreturn]] void refuse(const std::string& path) {
  throw OperationError(kind::badRequest, "the path " + inQuotes(path) +
                                             " does not name a copy directly inside " +
                                             Container::uploadName);
}

}  // namespace

StagedCopy::StagedCopy(Staging& staging, FileDescriptor folder, std::string name)
    : staging_(staging), folder_(std::move(folder)), name_(std::move(name)) {}

StagedCopy::~StagedCopy() {
  try {
    removeTree(folder_.get(), name_);
  } catch (const OperationError& error) {
    staging_.log_.error("cannot remove the staged copy " + inQuotes(name_) + ": " + error.what());
  }
  staging_.release(name_);
}

Staging::Staging(const Container& container, const HostLog& log)
    : container_(container), log_(log) {
  open();
}

FileDescriptor Staging::open() const {
  return makeFolder(container_.folder(), Container::uploadName);
}

void Staging::release(const std::string& name) {
  const std::lock_guard lock(mutex_);
  claimed_.erase(name);
}

std::unique_ptr<StagedCopy> Staging::claim(const std::string& path) {
  const auto [folderPath, name] = splitPath(path);
  if (name.empty() || name == "." || name == ".." || path.find('\0') != std::string::npos) {
    refuse(path);
  }
  // The extension may spell the way to the container differently: what counts is which folder the
  // path leads to. From there on only the last component is used.
  FileDescriptor upload = open();
  const FileDescriptor named(::open(folderPath.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!named) refuse(path);
  const EntryStat expected = statDescriptor(upload.get());
  const EntryStat actual = statDescriptor(named.get());
  if (actual.device != expected.device || actual.inode != expected.inode) refuse(path);

  {
    const std::lock_guard lock(mutex_);
    if (!claimed_.insert(name).second) {
      throw OperationError(kind::badRequest,
                           "another request holds the staged copy " + inQuotes(name));
    }
  }
  std::unique_ptr<StagedCopy> copy(new StagedCopy(*this, std::move(upload), name));
  const auto stat = statEntry(copy->folder(), name);
  if (!stat) throw OperationError(kind::notFound, "there is no staged copy " + inQuotes(name));
  if (stat->isOther()) refuse(path);
  copy->stat_ = *stat;
  copy->size_ = sizeOfTree(copy->folder(), name);
  return copy;
}

void Staging::sweep(std::chrono::seconds age, std::chrono::system_clock::time_point now) {
  const FileDescriptor upload = open();
  // Held throughout, so that no request claims a copy that is just being removed.
  const std::lock_guard lock(mutex_);
  const auto isInUse = [this](const std::string& name) { return claimed_.contains(name); };
  for (const std::string& name : sweepFolder(upload.get(), age, now, isInUse, log_)) {
    log_.info("swept the staged copy " + inQuotes(name) + ", which no request has named");
  }
}

}  // namespace tulo::host
