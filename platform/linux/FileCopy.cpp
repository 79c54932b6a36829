#include "platform/linux/FileCopy.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

namespace tulo::platform {

namespace {

// Large enough that the calls cost nothing beside the copying, small enough for the cache.
constexpr std::size_t bufferSize = 256 * 1024;
// What one copy_file_range may take at a time.
constexpr off_t rangeSize = off_t{1} << 30;

[[noreturn]] void throwLastError() {
  throw std::system_error(errno, std::generic_category());
}

// Repeats a call that a signal interrupted.
template <typename Call>
auto uninterrupted(const Call& call) {
  auto result = call();
  while (result < 0 && errno == EINTR)
    result = call();
  return result;
}

void writeAll(int target, std::string_view data, off_t offset) {
  while (!data.empty()) {
    const ssize_t written =
        uninterrupted([&] { return pwrite(target, data.data(), data.size(), offset); });
    if (written < 0) throwLastError();
    data.remove_prefix(static_cast<std::size_t>(written));
    offset += written;
  }
}

// Most copies have nothing left to do by hand and need no buffer to find that out.
bool hasDataAt(int source, off_t offset, off_t end) {
  char byte = 0;
  return offset < end && uninterrupted([&] { return pread(source, &byte, 1, offset); }) != 0;
}

// Copies by hand from `offset` up to `end` or the end of the file; returns where it stopped.
off_t copyThroughBuffer(int source, int target, off_t offset, off_t end) {
  if (!hasDataAt(source, offset, end)) return offset;
  std::vector<char> buffer(static_cast<std::size_t>(std::min<off_t>(bufferSize, end - offset)));
  while (offset < end) {
    const auto wanted =
        static_cast<std::size_t>(std::min(static_cast<off_t>(buffer.size()), end - offset));
    const ssize_t count =
        uninterrupted([&] { return pread(source, buffer.data(), wanted, offset); });
    if (count < 0) throwLastError();
    if (count == 0) break;
    writeAll(target, {buffer.data(), static_cast<std::size_t>(count)}, offset);
    offset += count;
  }
  return offset;
}

// The kernel copies what it can without the bytes' passing through here; returns how far it got,
// with what stopped it, if anything did, left to the copy by hand to meet again.
off_t copyInKernel(int source, int target, off_t offset, off_t end) {
  while (offset < end) {
    off_t from = offset;
    off_t to = offset;
    const auto wanted = static_cast<std::size_t>(std::min(rangeSize, end - offset));
    const ssize_t count =
        uninterrupted([&] { return copy_file_range(source, &from, target, &to, wanted, 0); });
    if (count <= 0) break;
    offset += count;
  }
  return offset;
}

off_t copyRange(int source, int target, off_t offset, off_t end) {
  return copyThroughBuffer(source, target, copyInKernel(source, target, offset, end), end);
}

// Copies the stretches of data below `size` and passes over the holes between them.
void copyDataStretches(int source, int target, off_t size) {
  off_t offset = 0;
  while (offset < size) {
    const off_t data = lseek(source, offset, SEEK_DATA);
    if (data < 0 && errno == ENXIO) return;
    // A file system that does not tell holes from data has all of the rest copied.
    const off_t begin = data < 0 ? offset : data;
    const off_t hole = data < 0 ? size : lseek(source, begin, SEEK_HOLE);
    const off_t end = hole < 0 ? size : std::min(hole, size);
    if (copyRange(source, target, begin, end) < end) return;
    offset = end;
  }
}

void setLength(int target, off_t length) {
  if (uninterrupted([&] { return ftruncate(target, length); }) != 0) throwLastError();
}

// The kernel's list of names, each ended by a NUL; empty when there is none to be had.
std::string attributeNames(int source) {
  std::string names;
  while (true) {
    const ssize_t size = flistxattr(source, nullptr, 0);
    if (size <= 0) return {};
    names.resize(static_cast<std::size_t>(size));
    const ssize_t filled = flistxattr(source, names.data(), names.size());
    if (filled < 0 && errno == ERANGE) continue;
    names.resize(filled < 0 ? 0 : static_cast<std::size_t>(filled));
    return names;
  }
}

void copyAttribute(int source, int target, const std::string& name) {
  const ssize_t size = fgetxattr(source, name.c_str(), nullptr, 0);
  if (size < 0) return;
  std::string value(static_cast<std::size_t>(size), '\0');
  const ssize_t filled = fgetxattr(source, name.c_str(), value.data(), value.size());
  if (filled < 0) return;
  fsetxattr(target, name.c_str(), value.data(), static_cast<std::size_t>(filled), 0);
}

}  // namespace

void copyFileBytes(int source, int target) {
  if (uninterrupted([&] { return ioctl(target, FICLONE, source); }) == 0) return;
  posix_fadvise(source, 0, 0, POSIX_FADV_SEQUENTIAL);
  struct stat status {};
  if (fstat(source, &status) != 0) throwLastError();
  copyDataStretches(source, target, status.st_size);
  // Beyond the size is what was appended meanwhile, and all of a file that does not tell its size.
  constexpr off_t openEnd = INT64_MAX;
  const off_t end = copyThroughBuffer(source, target, status.st_size, openEnd);
  struct stat after {};
  if (fstat(source, &after) != 0) throwLastError();
  setLength(target, end > status.st_size ? end : std::min(status.st_size, after.st_size));
}

void copyExtendedAttributes(int source, int target) {
  const std::string names = attributeNames(source);
  for (std::size_t begin = 0; begin < names.size();) {
    const std::string name = names.c_str() + begin;
    if (name.starts_with("user.")) copyAttribute(source, target, name);
    begin += name.size() + 1;
  }
}

void copyModeAndTime(const struct stat& status, int target) {
  // Running as someone is a privilege that its owner gave; the copy belongs to somebody else.
  const mode_t kept = status.st_uid == geteuid() ? 07777 : 01777;
  if (fchmod(target, status.st_mode & kept) != 0) throwLastError();
  const std::array<timespec, 2> times = {timespec{0, UTIME_OMIT}, status.st_mtim};
  if (futimens(target, times.data()) != 0) throwLastError();
}

}  // namespace tulo::platform
