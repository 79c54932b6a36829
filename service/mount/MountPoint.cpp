#include "service/mount/MountPoint.h"

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <vector>

#include "platform/linux/FileDescriptor.h"
#include "service/base/ServiceLog.h"

namespace tulo {

namespace {

int runProgram(const std::vector<const char*>& arguments) {
  const pid_t child = ::fork();
  if (child == 0) {
    ::execvp(arguments[0], const_cast<char* const*>(arguments.data()));
    ::_exit(127);
  }
  int status = 0;
  if (child < 0 || ::waitpid(child, &status, 0) < 0) return -1;
  return status;
}

}  // namespace

void MountPoint::check() const {
  struct stat status = {};
  if (::stat(path_.c_str(), &status) != 0) {
    throw MountError("cannot mount at " + path_ + ": " + std::strerror(errno));
  }
  if (!S_ISDIR(status.st_mode)) throw MountError("cannot mount at " + path_ + ": not a directory");
}

bool MountPoint::clearStale() const {
  // The kernel may still know the root's attributes; this question it always passes on.
  struct statfs status = {};
  if (::statfs(path_.c_str(), &status) == 0 || errno != ENOTCONN) return false;
  serviceLog().info("clearing the stale mount at %{public}@", {path_});
  if (::umount2(path_.c_str(), MNT_DETACH) == 0) return true;
  return runProgram({"fusermount3", "-uz", path_.c_str(), nullptr}) == 0;
}

std::string MountPoint::connectionNumber(std::istream& table) const {
  std::error_code ignored;
  const std::string wanted = std::filesystem::absolute(path_, ignored).lexically_normal();
  std::string line;
  std::string number;
  while (std::getline(table, line)) {
    std::istringstream fields(line);
    std::string identifier;
    std::string parent;
    std::string device;
    std::string root;
    std::string point;
    fields >> identifier >> parent >> device >> root >> point;
    if (point == wanted && line.find(" fuse.tulo ") != std::string::npos) {
      // The device's minor number names the connection.
      number = device.substr(device.find(':') + 1);
    }
  }
  return number;
}

void MountPoint::abortConnection() const {
  // Asking the mount itself could wait for ever.
  std::ifstream table("/proc/self/mountinfo");
  const std::string number = connectionNumber(table);
  if (number.empty()) return;
  const FileDescriptor file(
      ::open(("/sys/fs/fuse/connections/" + number + "/abort").c_str(), O_WRONLY | O_CLOEXEC));
  const bool aborted = file && ::write(file.get(), "1", 1) == 1;
  if (!aborted) ::umount2(path_.c_str(), MNT_FORCE | MNT_DETACH);
}

}  // namespace tulo
