// Which programs use a mount: those that have something of it open or mapped, or stand in it.
//
// Threads: pure functions of what the system tells.
// Errors: none; a program that cannot be looked at is left out.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "service/mount/MountTable.h"

namespace tulo {

struct MountUser {
  pid_t process = 0;
  std::string name;
  std::string path;     // something of the mount that it uses
  bool writes = false;  // has it open for writing

  bool operator==(const MountUser&) const = default;
};

// One for each program but this one, as far as this user may look. `processes` has a folder for
// each process, like /proc. Asks nothing of the mount itself, so it never waits.
std::vector<MountUser> usersOf(const MountedFileSystem& mount,
                               const std::string& processes = "/proc");

}  // namespace tulo
