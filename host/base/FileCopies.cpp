#include "host/base/FileCopies.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <climits>
#include <memory>
#include <optional>

#include "host/base/EntryStat.h"
#include "host/base/Files.h"
#include "host/base/HostError.h"
#include "platform/linux/FileDescriptor.h"

namespace tulo::host {

namespace {

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
  const auto whole = std::chrono::floor<std::chrono::seconds>(from.modified);
  timespec times[2];
  times[0].tv_sec = 0;
  times[0].tv_nsec = UTIME_OMIT;
  times[1].tv_sec = whole.time_since_epoch().count();
  times[1].tv_nsec = (from.modified - whole).count();
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
  const auto stat = statEntry(fromFolder, from);
  if (!stat) throw systemError(ENOENT, "copying " + from);
  if (stat->isFolder) {
    copyFolder(fromFolder, from, toFolder, to, *stat);
  } else if (stat->isFile) {
    copyFile(fromFolder, from, toFolder, to, *stat);
  } else if (stat->isLink) {
    copyLink(fromFolder, from, toFolder, to);
  }
}

}  // namespace tulo::host
