#include "service/replica/CacheRoom.h"

#include <sys/statvfs.h>

#include <algorithm>
#include <utility>

namespace tulo {

CacheRoom::CacheRoom(std::string directory, CacheLimits limits)
    : directory_(std::move(directory)), limits_(limits) {}

std::int64_t CacheRoom::diskShortage(std::int64_t wanted) const {
  if (free_) return std::max<std::int64_t>(0, wanted + reserved_ - free_());
  struct statvfs disk = {};
  if (::statvfs(directory_.c_str(), &disk) != 0) return 0;
  const auto unit = static_cast<std::int64_t>(disk.f_frsize);
  const auto free = static_cast<std::int64_t>(disk.f_bavail) * unit;
  const auto total = static_cast<double>(disk.f_blocks) * static_cast<double>(unit);
  const auto keep =
      std::max(static_cast<std::int64_t>(total * limits_.keepFreeFraction), limits_.keepFreeBytes);
  return std::max<std::int64_t>(0, wanted + reserved_ - (free - keep));
}

std::int64_t CacheRoom::shortage(std::int64_t wanted) const {
  return std::max(
      {std::int64_t{0}, used_ + reserved_ + wanted - limits_.size, diskShortage(wanted)});
}

}  // namespace tulo
