#include "service/base/ServicePaths.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <utility>

#include "service/base/Names.h"

namespace tulo {

namespace {

std::string baseDirectory(const char* variable, const char* below) {
  const char* value = std::getenv(variable);
  if (value && value[0] == '/') return value;
  const char* home = std::getenv("HOME");
  if (!home || home[0] != '/') {
    throw ServiceError(std::string("neither $") + variable +
                       " nor $HOME is set to an absolute path");
  }
  return std::string(home) + below;
}

// A domain is any text; as a directory's name it must not be one of the escaped kind.
std::string spelled(const std::string& domain) {
  return names::reversible(domain);
}

// Two lines: the process, and where the account is mounted.
DomainTaken takenBy(int lock) {
  std::array<char, 4200> text{};
  const ssize_t length = ::pread(lock, text.data(), text.size(), 0);
  const std::string all(text.data(), static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
  const std::size_t end = all.find('\n');
  std::string place = end == std::string::npos ? "" : all.substr(end + 1);
  if (place.ends_with('\n')) place.pop_back();
  return {all.empty() ? "unknown" : all.substr(0, end), place};
}

}  // namespace

DomainTaken::DomainTaken(std::string process, std::string place)
    : ServiceError("this account is mounted already" +
                   (place.empty() ? std::string() : " at " + place) + ", by process " + process),
      process_(std::move(process)),
      place_(std::move(place)) {}

namespace paths {

std::string stateDirectory(const std::string& domain) {
  return baseDirectory("XDG_STATE_HOME", "/.local/state") + "/tulo/" + spelled(domain);
}

std::string controlSocket(const std::string& domain) {
  const char* runtime = std::getenv("XDG_RUNTIME_DIR");
  if (!runtime || runtime[0] != '/') return stateDirectory(domain) + "/control.sock";
  return std::string(runtime) + "/tulo/" + spelled(domain) + ".sock";
}

void createPrivateDirectory(const std::string& path) {
  const std::string above = std::filesystem::path(path).parent_path();
  if (::mkdir(path.c_str(), 0700) == 0 || errno == EEXIST) return;
  if (errno == ENOENT && above != path) {
    createPrivateDirectory(above);
    if (::mkdir(path.c_str(), 0700) == 0 || errno == EEXIST) return;
  }
  throw ServiceError("cannot create " + path + ": " + std::strerror(errno));
}

}  // namespace paths

DomainLock::DomainLock(const std::string& stateDirectory) {
  const std::string path = stateDirectory + "/lock";
  file_ = FileDescriptor(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  if (!file_) throw ServiceError("cannot open " + path + ": " + std::strerror(errno));
  if (::flock(file_.get(), LOCK_EX | LOCK_NB) != 0) {
    throw takenBy(file_.get());
  }
  tell(std::to_string(::getpid()));
}

void DomainLock::tellPlace(const std::string& mountPoint) const {
  tell(std::to_string(::getpid()) + '\n' + mountPoint + '\n');
}

// It is there to be told only: a disk without room for it must not keep the service from starting.
void DomainLock::tell(const std::string& text) const {
  const bool written = ::pwrite(file_.get(), text.data(), text.size(), 0) >= 0;
  static_cast<void>(::ftruncate(file_.get(), written ? static_cast<off_t>(text.size()) : 0));
}

}  // namespace tulo
