// What the file system says of an entry.
//
// Threads: any thread. Errors: OperationError.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace tulo::host {

// A time as the file system keeps it.
using DiskTime = std::chrono::sys_time<std::chrono::nanoseconds>;

struct EntryStat {
  bool isFolder = false;
  bool isFile = false;
  bool isLink = false;
  std::uint32_t mode = 0;
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
  // The epoch where the file system does not know it.
  DiskTime born;
  DiskTime changed;
  DiskTime modified;
  std::int64_t size = 0;

  // Neither a folder nor a regular file: a link, a socket, a device, a pipe.
  bool isOther() const { return !isFolder && !isFile; }
};

// The very entry, also where it is a symbolic link. Nothing when there is no such entry.
std::optional<EntryStat> statEntry(int folder, const std::string& name);
EntryStat statDescriptor(int fd);

}  // namespace tulo::host
