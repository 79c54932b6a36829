// How what the disk says is kept in integer columns.
#pragma once

#include <cstdint>

#include "host/base/EntryStat.h"

namespace tulo::host {

inline std::int64_t column(std::uint64_t inode) {
  return static_cast<std::int64_t>(inode);
}

inline std::uint64_t inodeOf(std::int64_t column) {
  return static_cast<std::uint64_t>(column);
}

inline std::int64_t column(DiskTime time) {
  return time.time_since_epoch().count();
}

inline DiskTime timeOf(std::int64_t column) {
  return DiskTime(std::chrono::nanoseconds(column));
}

}  // namespace tulo::host
