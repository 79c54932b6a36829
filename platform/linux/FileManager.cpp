#include "platform/FileManager.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <new>
#include <system_error>
#include <utility>

#include "platform/ItemPath.h"
#include "platform/UUID.h"
#include "platform/linux/Container.h"
#include "platform/linux/FolderEntries.h"
#include "platform/linux/TreeCopy.h"
#include "platform/linux/TreeRemoval.h"

namespace tulo::platform {

namespace {

std::string reason(int error) {
  return std::generic_category().message(error);
}

bool holdsNul(const std::string& path) {
  return path.find('\0') != std::string::npos;
}

bool isFolder(const std::string& path) {
  struct stat status {};
  return !path.empty() && !holdsNul(path) && ::stat(path.c_str(), &status) == 0 &&
         S_ISDIR(status.st_mode);
}

bool existsIn(int folder, const std::string& name) {
  struct stat status {};
  return fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
}

// Renames where nothing stands, on a file system that cannot refuse to replace by itself: a hard
// link never replaces anything; what cannot be linked is renamed after a look.
int renameWithoutReplacingByHand(int folder, const std::string& from, const std::string& to) {
  if (linkat(folder, from.c_str(), folder, to.c_str(), 0) == 0) {
    return unlinkat(folder, from.c_str(), 0);
  }
  if (errno == EEXIST) return -1;
  if (existsIn(folder, to)) {
    errno = EEXIST;
    return -1;
  }
  return renameat(folder, from.c_str(), folder, to.c_str());
}

int renameWithoutReplacing(int folder, const std::string& from, const std::string& to) {
  const int result = renameat2(folder, from.c_str(), folder, to.c_str(), RENAME_NOREPLACE);
  if (result == 0 || (errno != EINVAL && errno != ENOSYS)) return result;
  return renameWithoutReplacingByHand(folder, from, to);
}

// An item that is being made under a hidden name and vanishes unless it is given its own.
class UnfinishedItem {
 public:
  explicit UnfinishedItem(int folder) : folder_(folder), name_("." + randomUUIDString() + ".tmp") {}
  ~UnfinishedItem() {
    if (isFinished_ || !existsIn(folder_, name_)) return;
    try {
      removeTree(folder_, name_);
    } catch (const std::exception&) {
      // What cannot be removed stays under its hidden name; the failure that led here is told.
    }
  }
  UnfinishedItem(const UnfinishedItem&) = delete;
  UnfinishedItem& operator=(const UnfinishedItem&) = delete;

  const std::string& name() const { return name_; }

  // Returns whether it now stands under the name; errno tells why not.
  bool finish(const std::string& finalName) {
    isFinished_ = renameWithoutReplacing(folder_, name_, finalName) == 0;
    return isFinished_;
  }

 private:
  const int folder_;
  const std::string name_;
  bool isFinished_ = false;
};

// The folder is found by its path, which may lead through symbolic links.
FileDescriptor openParent(const ItemPath& item) {
  return openFile(AT_FDCWD, item.folder, O_RDONLY | O_DIRECTORY);
}

[[noreturn]] void fail(const std::string& operation, const std::string& detail) {
  throw FileManagerError("cannot " + operation + ": " + detail);
}

FileDescriptor openRegularFile(const std::string& path) {
  struct stat status {};
  // Looked at first: merely opening a device can have effects. Opened without waiting, should a
  // pipe take its place in between.
  if (holdsNul(path) || ::stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) {
    return FileDescriptor();
  }
  FileDescriptor file = openFile(AT_FDCWD, path, O_RDONLY | O_NONBLOCK | O_NOCTTY);
  if (!file || fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return FileDescriptor();
  return file;
}

std::size_t sizeHint(int file) {
  struct stat status {};
  return fstat(file, &status) == 0 ? static_cast<std::size_t>(status.st_size) : 0;
}

// One byte more than the size is asked for, so that the end of the file is seen with the data.
std::optional<Data> readToEnd(int file) {
  constexpr std::size_t smallestStep = 4096;
  Data data(sizeHint(file) + 1, '\0');
  std::size_t length = 0;
  while (true) {
    if (length == data.size()) data.resize(data.size() + std::max(smallestStep, data.size() / 2));
    const ssize_t count = ::read(file, data.data() + length, data.size() - length);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return std::nullopt;
    if (count == 0) break;
    length += static_cast<std::size_t>(count);
  }
  data.resize(length);
  return data;
}

}  // namespace

// On Linux each process has one container, whatever the group is called.
std::optional<URL> FileManager::containerURL(std::string_view) {
  std::string directory = containerDirectory();
  if (!isFolder(directory)) return std::nullopt;
  return URL(std::move(directory));
}

bool FileManager::fileExists(const std::string& path) {
  struct stat status {};
  return !holdsNul(path) && ::stat(path.c_str(), &status) == 0;
}

void FileManager::createDirectory(const URL& directory) {
  const std::string& path = directory.path();
  const std::string operation = "create the folder " + path;
  if (path.empty() || holdsNul(path)) fail(operation, "not the path of a folder");
  std::error_code failure;
  std::filesystem::create_directories(path, failure);
  if (failure) fail(operation, failure.message());
}

void FileManager::removeItem(const URL& item) {
  const std::string operation = "remove " + item.path();
  const ItemPath place = itemPath(item.path());
  if (place.name.empty()) fail(operation, "not the path of an item in a folder");
  const FileDescriptor folder = openParent(place);
  if (!folder) fail(operation, reason(errno));
  try {
    removeTree(folder.get(), place.name);
  } catch (const std::system_error& failure) {
    fail(operation, failure.code().message());
  }
}

void FileManager::copyItem(const URL& source, const URL& destination) {
  const std::string operation = "copy " + source.path() + " to " + destination.path();
  const ItemPath from = itemPath(source.path());
  const ItemPath to = itemPath(destination.path());
  if (from.name.empty()) fail(operation, "the source is not the path of an item in a folder");
  if (to.name.empty()) fail(operation, "the destination is not the path of an item in a folder");
  const FileDescriptor folder = openParent(to);
  if (!folder) fail(operation, to.folder + ": " + reason(errno));
  if (existsIn(folder.get(), to.name)) fail(operation, destination.path() + ": " + reason(EEXIST));
  UnfinishedItem unfinished(folder.get());
  try {
    copyTree(from.path(), folder.get(), unfinished.name());
  } catch (const TreeCopyError& failure) {
    fail(operation, failure.what());
  }
  if (!unfinished.finish(to.name)) fail(operation, destination.path() + ": " + reason(errno));
}

std::optional<Data> FileManager::contents(const URL& file) {
  const FileDescriptor opened = openRegularFile(file.path());
  if (!opened) return std::nullopt;
  try {
    return readToEnd(opened.get());
  } catch (const std::bad_alloc&) {
    return std::nullopt;
  } catch (const std::length_error&) {
    return std::nullopt;
  }
}

}  // namespace tulo::platform
