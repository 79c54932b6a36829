// Tells the item that a path names from what must never be copied over or removed.
//
// Threads: pure functions.
#pragma once

#include <string>

namespace tulo::platform {

// A path taken apart into the folder that holds the item and the item's name there; slashes at the
// end do not count. The name is empty for a path that names no item of a folder: the empty path,
// the root, ".", "..", one with a NUL. A file manager refuses these before it touches anything: to
// some systems the empty path means the working directory.
struct ItemPath {
  std::string folder;
  std::string name;

  // Both together again, without slashes at the end: a link is named, not what it leads to.
  std::string path() const { return folder.ends_with('/') ? folder + name : folder + '/' + name; }
};

ItemPath itemPath(const std::string& path);

}  // namespace tulo::platform
