#include "host/account/Container.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <filesystem>

#include "host/base/HostError.h"

namespace tulo::host {

namespace {

namespace fs = std::filesystem;

std::string absolutePath(const std::string& path) {
  if (path.empty()) throw StartError("no container: give --container DIR, or set HOME");
  std::string text = fs::absolute(path).lexically_normal().string();
  while (text.size() > 1 && text.back() == '/')
    text.pop_back();
  return text;
}

void makeDirectory(const std::string& path) {
  std::error_code error;
  fs::create_directories(fs::path(path).parent_path(), error);
  if (::mkdir(path.c_str(), 0700) != 0 && errno != EEXIST) {
    throw StartError("the container " + path + " cannot be made: " + errorText(errno));
  }
}

void requirePrivate(const std::string& path, int folder) {
  struct stat info;
  if (::fstat(folder, &info) != 0) {
    throw StartError("the container " + path + ": " + errorText(errno));
  }
  if (info.st_uid != ::geteuid()) {
    throw StartError("the container " + path + " belongs to another user");
  }
  // A directory that others may write to is no directory of ours; better not to touch it at all.
  if ((info.st_mode & 022) != 0) {
    throw StartError("the container " + path + " is writable by other users; choose a private one");
  }
  if ((info.st_mode & 077) != 0 && ::fchmod(folder, 0700) != 0) {
    throw StartError("the container " + path + " cannot be made private: " + errorText(errno));
  }
}

}  // namespace

Container::Container(const std::string& path) : path_(absolutePath(path)) {
  makeDirectory(path_);
  folder_.reset(::open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!folder_) throw StartError("the container " + path_ + ": " + errorText(errno));
  requirePrivate(path_, folder_.get());
  stat_ = statDescriptor(folder_.get());
  takeLock();
}

void Container::takeLock() {
  lock_.reset(::openat(folder_.get(), lockName, O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (!lock_) throw StartError("the lock file " + pathOf(lockName) + ": " + errorText(errno));
  if (::flock(lock_.get(), LOCK_EX | LOCK_NB) != 0) {
    std::array<char, 32> pid{};
    const ssize_t size = ::read(lock_.get(), pid.data(), pid.size() - 1);
    const std::string who =
        size > 1 ? " (process " + std::string(pid.data(), static_cast<std::size_t>(size) - 1) + ")"
                 : "";
    throw StartError("another host" + who + " already serves the container " + path_);
  }
  const std::string pid = std::to_string(::getpid()) + "\n";
  if (::ftruncate(lock_.get(), 0) != 0 ||
      ::pwrite(lock_.get(), pid.data(), pid.size(), 0) != static_cast<ssize_t>(pid.size())) {
    throw StartError("the lock file " + pathOf(lockName) + ": " + errorText(errno));
  }
}

}  // namespace tulo::host
