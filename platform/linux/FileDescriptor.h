// Owned file descriptors and what is done with them in folder trees of any depth.
//
// Threads: an object belongs to one thread; the functions may be called on any.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace tulo::platform {

// Closes the descriptor that it holds; -1 holds none.
class FileDescriptor {
 public:
  explicit FileDescriptor(int descriptor = -1) : descriptor_(descriptor) {}
  ~FileDescriptor();
  FileDescriptor(FileDescriptor&& other) noexcept
      : descriptor_(std::exchange(other.descriptor_, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    std::swap(descriptor_, other.descriptor_);
    return *this;
  }

  int get() const { return descriptor_; }
  explicit operator bool() const { return descriptor_ >= 0; }

 private:
  int descriptor_;
};

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
