// The works of mount_probe that change something. Each gives the seconds that it took, and throws
// std::exception when a call fails.
#pragma once

#include <string>
#include <vector>

namespace tulo::bench {

using Arguments = std::vector<std::string>;

// DIR N: makes N files of 4 KiB, each written in one call and closed.
double createFiles(const Arguments& arguments);
// DIR N: the same, each forced to the disk before it is closed.
double createDurably(const Arguments& arguments);
// DIR N: gives each of the files that `create` made another name.
double renameFiles(const Arguments& arguments);
// DIR N: removes the renamed ones.
double removeFiles(const Arguments& arguments);
// FILE MIB: writes a new file in pieces of 1 MiB and closes it.
double fillFile(const Arguments& arguments);
// CONTAINER NAME N CONNECTIONS: has the host make a folder and, so many at a time, N files of 4 KiB
// in it. Only the requests for the files are timed; their contents lie ready before.
double sendCreates(const Arguments& arguments);

}  // namespace tulo::bench
