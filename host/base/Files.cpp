#include "host/base/Files.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <memory>

#include "host/base/HostError.h"

namespace tulo::host {

namespace {

constexpr int folderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
// An opened pipe or device must not block; for regular files the flag has no meaning.
constexpr int fileFlags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;

std::int64_t nanoseconds(const statx_timestamp& time) {
  return time.tv_sec * nanosecondsPerSecond + time.tv_nsec;
}

EntryStat entryStat(const struct statx& from) {
  EntryStat to;
  to.isFolder = S_ISDIR(from.stx_mode);
  to.isFile = S_ISREG(from.stx_mode);
  to.mode = from.stx_mode & 07777;
  to.device = static_cast<std::uint64_t>(from.stx_dev_major) << 32 | from.stx_dev_minor;
  to.inode = from.stx_ino;
  to.birthNs = (from.stx_mask & STATX_BTIME) != 0 ? nanoseconds(from.stx_btime) : 0;
  to.changedNs = nanoseconds(from.stx_ctime);
  to.size = static_cast<std::int64_t>(from.stx_size);
  to.mtimeNs = nanoseconds(from.stx_mtime);
  return to;
}

bool isAbsent(int number) {
  return number == ENOENT || number == ENOTDIR || number == ELOOP;
}

FileDescriptor openEntry(int folder, const std::string& name, int flags) {
  FileDescriptor fd(::openat(folder, name.c_str(), flags));
  // A socket and a device without a driver cannot be opened at all.
  if (!fd && !isAbsent(errno) && errno != ENXIO && errno != ENODEV) {
    throw systemError(errno, "opening " + name);
  }
  return fd;
}

FileDescriptor createFile(int folder, const std::string& name, mode_t mode) {
  FileDescriptor fd(
      ::openat(folder, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode));
  if (!fd) throw systemError(errno, "creating " + name);
  return fd;
}

bool cloneWhole(int from, int to) {
  return ::ioctl(to, FICLONE, from) == 0;
}

// Nothing when this pair of files does not support it at all.
std::optional<std::size_t> copyRange(int from, int to, std::size_t count) {
  const ssize_t copied = ::copy_file_range(from, nullptr, to, nullptr, count, 0);
  if (copied >= 0) return static_cast<std::size_t>(copied);
  if (errno == EINTR) return copyRange(from, to, count);
  if (errno == ENOSPC || errno == EDQUOT || errno == EIO) throw systemError(errno, "copying");
  return std::nullopt;
}

void writeAll(int to, const char* data, std::size_t count) {
  while (count > 0) {
    const ssize_t written = ::write(to, data, count);
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) throw systemError(errno, "writing");
    data += written;
    count -= static_cast<std::size_t>(written);
  }
}

void copyPlainly(int from, int to) {
  constexpr std::size_t bufferSize = std::size_t{256} * 1024;
  const auto buffer = std::make_unique<char[]>(bufferSize);
  while (true) {
    const ssize_t count = ::read(from, buffer.get(), bufferSize);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) throw systemError(errno, "reading");
    if (count == 0) return;
    writeAll(to, buffer.get(), static_cast<std::size_t>(count));
  }
}

void copyTimes(int to, const EntryStat& from) {
  timespec times[2];
  times[0].tv_sec = 0;
  times[0].tv_nsec = UTIME_OMIT;
  times[1].tv_sec = from.mtimeNs / nanosecondsPerSecond;
  times[1].tv_nsec = from.mtimeNs % nanosecondsPerSecond;
  if (times[1].tv_nsec < 0) {
    times[1].tv_nsec += nanosecondsPerSecond;
    --times[1].tv_sec;
  }
  // A copy with the wrong time is still a copy.
  static_cast<void>(::futimens(to, times));
}

void copyLink(int fromFolder, const std::string& from, int toFolder, const std::string& to) {
  char target[PATH_MAX];
  const ssize_t size = ::readlinkat(fromFolder, from.c_str(), target, sizeof(target) - 1);
  if (size < 0) throw systemError(errno, "reading the link " + from);
  target[size] = '\0';
  if (::symlinkat(target, toFolder, to.c_str()) != 0) throw systemError(errno, "creating " + to);
}

void copyFolder(int fromFolder, const std::string& from, int toFolder, const std::string& to,
                const EntryStat& stat) {
  if (::mkdirat(toFolder, to.c_str(), 0700) != 0) throw systemError(errno, "creating " + to);
  const FileDescriptor source = openFolder(fromFolder, from);
  const FileDescriptor target = openFolder(toFolder, to);
  if (!source || !target) throw systemError(ENOENT, "copying " + from);
  forEachEntry(source.get(),
               [&](const std::string& name) { copyTree(source.get(), name, target.get(), name); });
  copyTimes(target.get(), stat);
  static_cast<void>(::fchmod(target.get(), (stat.mode & 0777) | 0700));
}

void copyFile(int fromFolder, const std::string& from, int toFolder, const std::string& to,
              const EntryStat& stat) {
  const FileDescriptor source = openFile(fromFolder, from);
  if (!source) throw systemError(ENOENT, "copying " + from);
  const FileDescriptor target = createFile(toFolder, to, (stat.mode & 0777) | 0600);
  copyContents(source.get(), target.get());
  copyTimes(target.get(), stat);
}

}  // namespace

std::optional<EntryStat> statEntry(int folder, const std::string& name) {
  struct statx result;
  const int flags = AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT;
  if (::statx(folder, name.c_str(), flags, STATX_BASIC_STATS | STATX_BTIME, &result) != 0) {
    if (isAbsent(errno) || errno == ENAMETOOLONG) return std::nullopt;
    throw systemError(errno, "looking at " + name);
  }
  return entryStat(result);
}

EntryStat statDescriptor(int fd) {
  struct statx result;
  if (::statx(fd, "", AT_EMPTY_PATH, STATX_BASIC_STATS | STATX_BTIME, &result) != 0) {
    throw systemError(errno, "looking at an open file");
  }
  return entryStat(result);
}

FileDescriptor openFolderPath(const std::string& path) {
  FileDescriptor fd(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!fd) throw systemError(errno, "opening the folder " + path);
  return fd;
}

FileDescriptor openFolder(int folder, const std::string& name) {
  return openEntry(folder, name, folderFlags);
}

FileDescriptor openFile(int folder, const std::string& name) {
  FileDescriptor fd = openEntry(folder, name, fileFlags);
  if (fd && !statDescriptor(fd.get()).isFile) fd.reset();
  return fd;
}

FileDescriptor makeFolder(int folder, const std::string& name) {
  if (::mkdirat(folder, name.c_str(), 0700) != 0 && errno != EEXIST) {
    throw systemError(errno, "creating the folder " + name);
  }
  FileDescriptor fd = openFolder(folder, name);
  if (!fd) throw OperationError(kind::io, name + " is in the way: it is not a folder");
  return fd;
}

void forEachEntry(int folder, const std::function<void(const std::string& name)>& visit) {
  // A description of its own: reading must not move the position that other readers of `folder`
  // see.
  FileDescriptor own(::openat(folder, ".", folderFlags));
  if (!own) throw systemError(errno, "reading a folder");
  const std::unique_ptr<DIR, int (*)(DIR*)> directory(::fdopendir(own.get()), ::closedir);
  if (!directory) throw systemError(errno, "reading a folder");
  own.release();
  while (true) {
    errno = 0;
    const dirent* entry = ::readdir(directory.get());
    if (entry == nullptr && errno != 0) throw systemError(errno, "reading a folder");
    if (entry == nullptr) return;
    const std::string name = entry->d_name;
    if (name != "." && name != "..") visit(name);
  }
}

void copyContents(int from, int to) {
  if (cloneWhole(from, to)) return;
  constexpr std::size_t chunk = std::size_t{64} << 20;
  bool any = false;
  while (const auto copied = copyRange(from, to, chunk)) {
    // Files of special file systems pretend to be empty: only reading shows what is in them.
    if (*copied == 0 && any) return;
    if (*copied == 0) break;
    any = true;
  }
  copyPlainly(from, to);
}

void copyTree(int fromFolder, const std::string& from, int toFolder, const std::string& to) {
  struct statx result;
  if (::statx(fromFolder, from.c_str(), AT_SYMLINK_NOFOLLOW, STATX_BASIC_STATS, &result) != 0) {
    throw systemError(errno, "copying " + from);
  }
  const EntryStat stat = entryStat(result);
  if (stat.isFolder) {
    copyFolder(fromFolder, from, toFolder, to, stat);
  } else if (stat.isFile) {
    copyFile(fromFolder, from, toFolder, to, stat);
  } else if (S_ISLNK(result.stx_mode)) {
    copyLink(fromFolder, from, toFolder, to);
  }
}

void syncDescriptor(int fd) {
  // Some file systems have no way to sync a folder, and say so.
  if (::fsync(fd) != 0 && errno != EINVAL && errno != EROFS) throw systemError(errno, "syncing");
}

void syncTree(int folder, const std::string& name) {
  if (const FileDescriptor sub = openFolder(folder, name)) {
    forEachEntry(sub.get(), [&](const std::string& child) { syncTree(sub.get(), child); });
    syncDescriptor(sub.get());
  } else if (const FileDescriptor file = openFile(folder, name)) {
    syncDescriptor(file.get());
  }
}

void removeTree(int folder, const std::string& name) {
  if (::unlinkat(folder, name.c_str(), 0) == 0 || errno == ENOENT) return;
  const int unlinkError = errno;
  const FileDescriptor sub = openFolder(folder, name);
  if (!sub) throw systemError(unlinkError, "removing " + name);
  forEachEntry(sub.get(), [&](const std::string& child) { removeTree(sub.get(), child); });
  if (::unlinkat(folder, name.c_str(), AT_REMOVEDIR) != 0 && errno != ENOENT) {
    throw systemError(errno, "removing the folder " + name);
  }
}

MoveResult moveEntry(int fromFolder, const std::string& from, int toFolder, const std::string& to) {
  if (::renameat2(fromFolder, from.c_str(), toFolder, to.c_str(), RENAME_NOREPLACE) == 0) {
    return MoveResult::moved;
  }
  if (errno == EEXIST) return MoveResult::taken;
  if (errno == EXDEV) return MoveResult::otherFileSystem;
  if (errno != EINVAL && errno != ENOSYS) throw systemError(errno, "renaming " + from);
  // A file system without this flag: look first, which leaves the shortest of gaps.
  if (statEntry(toFolder, to)) return MoveResult::taken;
  if (::renameat(fromFolder, from.c_str(), toFolder, to.c_str()) == 0) return MoveResult::moved;
  if (errno == EXDEV) return MoveResult::otherFileSystem;
  throw systemError(errno, "renaming " + from);
}

bool exchangeEntries(int folderA, const std::string& a, int folderB, const std::string& b) {
  if (::renameat2(folderA, a.c_str(), folderB, b.c_str(), RENAME_EXCHANGE) == 0) return true;
  if (errno == EINVAL || errno == ENOSYS || errno == EOPNOTSUPP) return false;
  throw systemError(errno, "replacing " + b);
}

void replaceFile(int fromFolder, const std::string& from, int toFolder, const std::string& to) {
  if (::renameat(fromFolder, from.c_str(), toFolder, to.c_str()) != 0) {
    throw systemError(errno, "replacing " + to);
  }
}

}  // namespace tulo::host
