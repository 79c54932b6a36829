#include "platform/linux/FolderEntries.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <string_view>
#include <system_error>

namespace tulo::platform {

namespace {

struct CloseFolder {
  void operator()(DIR* folder) const noexcept { closedir(folder); }
};

constexpr int folderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW;

[[noreturn]] void throwLastError() {
  throw std::system_error(errno, std::generic_category());
}

bool isFolder(int directory, const dirent& entry) {
  if (entry.d_type != DT_UNKNOWN) return entry.d_type == DT_DIR;
  struct stat status {};
  return fstatat(directory, entry.d_name, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
         S_ISDIR(status.st_mode);
}

}  // namespace

FileDescriptor openFile(int directory, const std::string& name, int flags, mode_t mode) {
  int descriptor = -1;
  do {
    descriptor = openat(directory, name.c_str(), flags | O_CLOEXEC, mode);
  } while (descriptor < 0 && errno == EINTR);
  return FileDescriptor(descriptor);
}

FileDescriptor openFolderBelow(int root, const std::string& relativePath) {
  FileDescriptor folder = openFile(root, ".", folderFlags);
  std::string_view rest = relativePath;
  while (folder && !rest.empty()) {
    const std::string_view name = rest.substr(0, rest.find('/'));
    rest.remove_prefix(std::min(name.size() + 1, rest.size()));
    folder = openFile(folder.get(), std::string(name), folderFlags);
  }
  return folder;
}

std::string joinedPath(const std::string& folder, const std::string& name) {
  return folder.empty() ? name : folder + '/' + name;
}

std::vector<FolderEntry> folderEntries(const FileDescriptor& folder) {
  // The stream takes a descriptor of its own, with a position of its own.
  const int own = openat(folder.get(), ".", folderFlags | O_CLOEXEC);
  if (own < 0) throwLastError();
  const std::unique_ptr<DIR, CloseFolder> stream(fdopendir(own));
  if (!stream) {
    const FileDescriptor closing(own);
    throwLastError();
  }
  std::vector<FolderEntry> entries;
  errno = 0;
  while (const dirent* entry = readdir(stream.get())) {
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") entries.push_back({std::string(name), isFolder(own, *entry)});
    errno = 0;
  }
  if (errno != 0) throwLastError();
  return entries;
}

}  // namespace tulo::platform
