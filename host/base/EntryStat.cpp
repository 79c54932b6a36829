#include "host/base/EntryStat.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

#include "host/base/HostError.h"

namespace tulo::host {

namespace {

DiskTime timeOf(const statx_timestamp& time) {
  return DiskTime(std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec));
}

EntryStat entryStat(const struct statx& from) {
  EntryStat to;
  to.isFolder = S_ISDIR(from.stx_mode);
  to.isFile = S_ISREG(from.stx_mode);
  to.isLink = S_ISLNK(from.stx_mode);
  to.mode = from.stx_mode & 07777;
  to.device = static_cast<std::uint64_t>(from.stx_dev_major) << 32 | from.stx_dev_minor;
  to.inode = from.stx_ino;
  if ((from.stx_mask & STATX_BTIME) != 0) to.born = timeOf(from.stx_btime);
  to.changed = timeOf(from.stx_ctime);
  to.modified = timeOf(from.stx_mtime);
  to.size = static_cast<std::int64_t>(from.stx_size);
  return to;
}

}  // namespace

std::optional<EntryStat> statEntry(int folder, const std::string& name) {
  struct statx result;
  const int flags = AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT;
  if (::statx(folder, name.c_str(), flags, STATX_BASIC_STATS | STATX_BTIME, &result) != 0) {
    const bool isAbsent = errno == ENOENT || errno == ENOTDIR || errno == ELOOP;
    if (isAbsent || errno == ENAMETOOLONG) return std::nullopt;
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

}  // namespace tulo::host
