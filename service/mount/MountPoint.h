// The folder that an account is mounted at, as the system sees it: whether it can be one, what a
// service that died left there, and the kernel's connection behind it.
//
// Threads: every member may be called on any thread.
#pragma once

#include <stdexcept>
#include <string>
#include <utility>

#include "service/base/Time.h"
#include "service/mount/MountTable.h"

namespace tulo {

class MountError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class MountPoint {
 public:
  explicit MountPoint(std::string path) : path_(std::move(path)) {}

  const std::string& path() const { return path_; }

  // Throws MountError, which says what is wrong with the path.
  void check() const;

  // Unmounts what a service that died has left there; false when there is nothing like that.
  bool clearStale() const;

  // What is mounted there by a service; nothing when nothing is.
  std::optional<MountedFileSystem> mounted() const { return ourMountAt(path_); }

  // Has the kernel hand over what programs wrote through mappings and it only has in memory. False
  // when that was not done within the time. Requests must be served meanwhile.
  bool writeBack(milliseconds patience) const;

  enum class Detach { ifUnused, atOnce };
  enum class Detached { yes, inUse, no };
  // Takes the mount away: as long as a program uses it not at all, or from its place at once, where
  // those who have something open go on with it. Requests must be served meanwhile.
  Detached detach(Detach manner, milliseconds patience) const;

  // Cuts the kernel's connection of what was mounted there, so that nothing in the kernel waits for
  // an answer any more.
  void abortConnection(const MountedFileSystem& mounted) const;

 private:
  const std::string path_;
};

}  // namespace tulo
