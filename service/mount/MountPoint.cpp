#include "service/mount/MountPoint.h"

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "platform/linux/FileDescriptor.h"
#include "service/base/ServiceLog.h"
#include "service/mount/HelperProcess.h"

namespace tulo {

namespace {

constexpr milliseconds kClearing{5000};
// Larger than every errno that umount2 has, and what a shell says of a program that is not there.
constexpr int kRefused = 255;

// The one program that may unmount for a user. What it has to say goes to the log.
int unmountForUser(const char* path, bool atOnce) {
  const std::array<const char*, 5> words = {"fusermount3", "-u", atOnce ? "-z" : "--", path,
                                            nullptr};
  ::execvp(words[0], const_cast<char* const*>(words.data()));
  return kRefused;
}

// 0, or an errno, or what the program ended with.
int unmount(const char* path, bool atOnce) {
  if (::umount2(path, atOnce ? MNT_DETACH : 0) == 0) return 0;
  return errno == EPERM ? unmountForUser(path, atOnce) : errno;
}

int writeBackAll(const char* path) {
  const int folder = ::open(path, O_RDONLY | O_DIRECTORY);
  return folder >= 0 && ::syncfs(folder) == 0 ? 0 : 1;
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
  return detach(Detach::atOnce, kClearing) == Detached::yes;
}

bool MountPoint::writeBack(milliseconds patience) const {
  HelperProcess helper([path = path_.c_str()] { return writeBackAll(path); });
  return helper.wait(patience) == 0;
}

MountPoint::Detached MountPoint::detach(Detach manner, milliseconds patience) const {
  const bool atOnce = manner == Detach::atOnce;
  HelperProcess helper([path = path_.c_str(), atOnce] { return unmount(path, atOnce); });
  const std::optional<int> status = helper.wait(patience);
  if (status == 0) return Detached::yes;
  // A user's program tells no more than that it failed; whoever asks can look who uses the mount.
  return status == EBUSY || status == 1 ? Detached::inUse : Detached::no;
}

void MountPoint::abortConnection(const MountedFileSystem& mounted) const {
  // Asking the mount itself could wait for ever.
  const std::string connection = "/sys/fs/fuse/connections/" + std::to_string(mounted.minor);
  const FileDescriptor file(::open((connection + "/abort").c_str(), O_WRONLY | O_CLOEXEC));
  const bool aborted = file && ::write(file.get(), "1", 1) == 1;
  const auto there = aborted ? std::nullopt : this->mounted();
  if (there && there->minor == mounted.minor) ::umount2(path_.c_str(), MNT_FORCE | MNT_DETACH);
}

}  // namespace tulo
