// What the system says is mounted: the lines of /proc/PID/mountinfo.
//
// Threads: pure functions.
#pragma once

#include <cstdint>
#include <istream>
#include <optional>
#include <string>
#include <vector>

namespace tulo {

struct MountedFileSystem {
  std::uint64_t number = 0;  // of the mount, as /proc/PID/fdinfo tells it, too
  std::uint64_t above = 0;   // of the mount that it lies in
  unsigned major = 0;
  unsigned minor = 0;  // of ours the number of the kernel's connection
  std::string point;
  std::string type;

  bool isOurs() const { return type == "fuse.tulo"; }
};

// In the order of the table: of several at one place the last one is the uppermost.
std::vector<MountedFileSystem> mountedFileSystems(std::istream& table);

// Ours at the place; nothing when there is none.
std::optional<MountedFileSystem> ourMountAt(const std::string& point, std::istream& table);
// The same of this process's table.
std::optional<MountedFileSystem> ourMountAt(const std::string& point);

}  // namespace tulo
