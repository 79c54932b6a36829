#include "service/replica/Reserve.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>

#include "platform/linux/FileDescriptor.h"

namespace tulo {

namespace {

// As much as the database needs to be opened and to begin its log.
constexpr std::int64_t kAsGoodAsNone = 256 << 10;

std::int64_t freeBytes(const std::string& path) {
  struct statvfs disk = {};
  if (::statvfs(path.substr(0, path.rfind('/')).c_str(), &disk) != 0) return -1;
  return static_cast<std::int64_t>(disk.f_bavail) * static_cast<std::int64_t>(disk.f_frsize);
}

}  // namespace

Reserve::Reserve(std::string path) : path_(std::move(path)) {
  struct stat status = {};
  if (::stat(path_.c_str(), &status) != 0) return;
  // A copy of the folder may have made holes of it.
  if (std::int64_t{status.st_blocks} * 512 >= status.st_size) size_ = status.st_size;
}

bool Reserve::giveBack() {
  const MutexLock lock(mutex_);
  if (size_ == 0) return false;
  const std::int64_t rest = std::max<std::int64_t>(0, size_ - kPiece);
  if (::truncate(path_.c_str(), rest) != 0) return false;
  size_ = rest;
  return true;
}

void Reserve::giveBackIfFull() {
  const std::int64_t room = freeBytes(path_);
  if (room >= 0 && room < kAsGoodAsNone) giveBack();
}

bool Reserve::refillStep() {
  const MutexLock lock(mutex_);
  if (size_ >= kWhole || freeBytes(path_) < kWhole + kBeside) return false;
  const FileDescriptor file(
      ::open(path_.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
  if (!file) return false;
  if (::posix_fallocate(file.get(), 0, kWhole) == 0) {
    size_ = kWhole;
  } else if (::ftruncate(file.get(), size_) != 0) {
    size_ = 0;
  }
  return size_ == kWhole;
}

std::int64_t Reserve::size() const {
  const MutexLock lock(mutex_);
  return size_;
}

}  // namespace tulo
