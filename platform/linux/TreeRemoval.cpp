#include "platform/linux/TreeRemoval.h"

#include <fcntl.h>

#include <cerrno>
#include <system_error>
#include <vector>

#include "platform/linux/FolderEntries.h"

namespace tulo::platform {

namespace {

[[noreturn]] void throwLastError() {
  throw std::system_error(errno, std::generic_category());
}

// What somebody else has removed meanwhile is gone as it should be.
void unlinkEntry(int folder, const std::string& name, int flags) {
  if (unlinkat(folder, name.c_str(), flags) != 0 && errno != ENOENT) throwLastError();
}

FileDescriptor openExisting(int root, const std::string& path) {
  FileDescriptor folder = openFolderBelow(root, path);
  if (!folder && errno != ENOENT) throwLastError();
  return folder;
}

// Removes what is no folder, and appends the paths of the folders in it.
void emptyOfFiles(int root, const std::string& path, std::vector<std::string>& folders) {
  const FileDescriptor folder = openExisting(root, path);
  if (!folder) return;
  for (const FolderEntry& entry : folderEntries(folder)) {
    if (entry.isFolder) {
      folders.push_back(joinedPath(path, entry.name));
    } else {
      unlinkEntry(folder.get(), entry.name, 0);
    }
  }
}

void removeEmptyFolder(int root, const std::string& path) {
  const std::size_t slash = path.rfind('/');
  const FileDescriptor parent =
      openExisting(root, slash == std::string::npos ? std::string() : path.substr(0, slash));
  if (!parent) return;
  unlinkEntry(parent.get(), slash == std::string::npos ? path : path.substr(slash + 1),
              AT_REMOVEDIR);
}

void removeFolder(int folder, const std::string& name) {
  const FileDescriptor root = openFile(folder, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW);
  if (!root) throwLastError();
  // Folders stand in the list before the ones that they hold; the list grows while it is walked.
  std::vector<std::string> folders{std::string()};
  for (std::size_t index = 0; index < folders.size(); ++index) {
    emptyOfFiles(root.get(), std::string(folders[index]), folders);
  }
  while (folders.size() > 1) {
    removeEmptyFolder(root.get(), folders.back());
    folders.pop_back();
  }
  if (unlinkat(folder, name.c_str(), AT_REMOVEDIR) != 0) throwLastError();
}

}  // namespace

void removeTree(int folder, const std::string& name) {
  if (unlinkat(folder, name.c_str(), 0) == 0) return;
  // Linux says EISDIR of a folder, other systems' file systems say EPERM.
  if (errno != EISDIR && errno != EPERM) throwLastError();
  const int reason = errno;
  try {
    removeFolder(folder, name);
  } catch (const std::system_error& failure) {
    if (failure.code().value() != ENOTDIR) throw;
    throw std::system_error(reason, std::generic_category());
  }
}

}  // namespace tulo::platform
