#include "service/upload/StagingProbe.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>

#include "platform/linux/FileDescriptor.h"
#include "service/base/ContainerFiles.h"

namespace tulo {

namespace {

bool isFolder(const std::string& path) {
  struct stat status = {};
  return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

// 0 or an errno; some file systems cannot say whether so much fits but by what they have left.
int reserve(int file, std::int64_t size) {
  if (size == 0 || ::fallocate(file, 0, 0, size) == 0) return 0;
  if (errno != EOPNOTSUPP && errno != ENOSYS) return errno;
  struct statvfs disk = {};
  if (::fstatvfs(file, &disk) != 0) return errno;
  const auto free =
      static_cast<std::int64_t>(disk.f_bavail) * static_cast<std::int64_t>(disk.f_frsize);
  return free < size ? ENOSPC : 0;
}

}  // namespace

int StagingProbe::errorOf(const std::string& contents) const {
  if (container_.empty()) return 0;
  const FileDescriptor source(::open(contents.c_str(), O_RDONLY | O_CLOEXEC));
  struct stat status = {};
  if (!source || ::fstat(source.get(), &status) != 0) return errno;
  return errorOfRoom(status.st_size);
}

int StagingProbe::errorOfRoom(std::int64_t size) const {
  // A container that is not there is a host that cannot be reached, which is told apart already.
  if (!isFolder(container_)) return 0;
  const std::string staging = container::stagingFolder(container_);
  std::string path = (isFolder(staging) ? staging : container_) + "/.probe-XXXXXX";
  const FileDescriptor file(::mkostemp(path.data(), O_CLOEXEC));
  if (!file) return errno;
  const int error = reserve(file.get(), size);
  ::unlink(path.c_str());
  return error;
}

}  // namespace tulo
