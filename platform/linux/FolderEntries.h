// Opening and listing folders in trees of any depth, from a descriptor down.
//
// Threads: any thread.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "platform/linux/FileDescriptor.h"

namespace tulo::platform {

// As openat, close-on-exec added and interruptions retried; holds none on failure, with errno set.
FileDescriptor openFile(int directory, const std::string& name, int flags, mode_t mode = 0);

// The folder at the relative path below `root`, or `root` itself for an empty one. Opened name by
// name, never through a symbolic link, so that the length of the path has no bound.
// Holds none on failure, with errno set.
FileDescriptor openFolderBelow(int root, const std::string& relativePath);

// "folder/name", or the name alone in the empty path.
std::string joinedPath(const std::string& folder, const std::string& name);

struct FolderEntry {
  std::string name;
  bool isFolder = false;
};

// The entries of an open folder but "." and "..". Throws std::system_error.
std::vector<FolderEntry> folderEntries(const FileDescriptor& folder);

}  // namespace tulo::platform
