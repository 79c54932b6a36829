#include "host/account/Staging.h"

#include <fcntl.h>

#include <set>
#include <utility>

#include "host/account/Uncollected.h"
#include "host/base/EntryStat.h"
#include "host/base/Files.h"
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

[[noreturn]] void refuse(const std::string& path) {
  throw BadRequest("the path " + inQuotes(path) + " does not name a copy directly inside " +
                   Container::uploadName);
}

// The extension may spell the way to the container differently: what counts is which folder the
// path leads to. From there on only the last component is used.
bool leadsTo(const std::string& path, int folder) {
  const FileDescriptor named(::open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!named) return false;
  const EntryStat expected = statDescriptor(folder);
  const EntryStat actual = statDescriptor(named.get());
  return actual.device == expected.device && actual.inode == expected.inode;
}

}  // namespace

Staging::Staging(const Container& container, const HostLog& log)
    : container_(container), log_(log) {
  open();
}

FileDescriptor Staging::open() const {
  return makeFolder(container_.folder(), Container::uploadName);
}

std::unique_ptr<StagedCopy> Staging::claim(const std::string& path) {
  const auto [folderPath, name] = splitPath(path);
  if (name.empty() || name == "." || name == ".." || path.find('\0') != std::string::npos) {
    refuse(path);
  }
  FileDescriptor upload = open();
  if (!leadsTo(folderPath, upload.get())) refuse(path);
  auto claim = claims_.claim(name);
  if (!claim) {
    throw BadRequest("another request holds the staged copy " + inQuotes(name));
  }
  auto copy = std::make_unique<StagedCopy>(std::move(upload), *std::move(claim), log_);
  if (!copy->isThere()) {
    throw OperationError(kind::notFound, "there is no staged copy " + inQuotes(name));
  }
  if (copy->isOther()) refuse(path);
  return copy;
}

void Staging::removeUncollected(std::chrono::seconds age,
                                std::chrono::system_clock::time_point now) {
  const FileDescriptor upload = open();
  // No request claims a copy that is just being removed.
  claims_.whileTheyStay([&](const std::set<std::string>& claimed) {
    const auto isInUse = [&](const std::string& name) { return claimed.contains(name); };
    for (const std::string& name : host::removeUncollected(upload.get(), age, now, isInUse, log_)) {
      log_.info("swept the staged copy " + inQuotes(name) + ", which no request has named");
    }
  });
}

}  // namespace tulo::host
