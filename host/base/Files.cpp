#include "host/base/Files.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <memory>

#include "host/base/EntryStat.h"
#include "host/base/HostError.h"

namespace tulo::host {

namespace {

bool isAbsent(int number) {
  return number == ENOENT || number == ENOTDIR || number == ELOOP;
}

constexpr int folderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
// An opened pipe or device must not block; for regular files the flag has no meaning.
constexpr int fileFlags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;

FileDescriptor openEntry(int folder, const std::string& name, int flags) {
  FileDescriptor fd(::openat(folder, name.c_str(), flags));
  // A socket and a device without a driver cannot be opened at all.
  if (!fd && !isAbsent(errno) && errno != ENXIO && errno != ENODEV) {
    throw systemError(errno, "opening " + name);
  }
  return fd;
}

}  // namespace

FileDescriptor openFolderPath(const std::string& path) {
  FileDescriptor fd(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!fd) throw systemError(errno, "opening the folder " + path);
  return fd;
}

FileDescriptor openFolder(int folder, const std::string& name) {
  return openEntry(folder, name, folderFlags);
}

FileDescriptor openFile(int folder, const std::string& name) {
  FileDescriptor fd = openEntry(folder, name, fileFlags);
  if (fd && !statDescriptor(fd.get()).isFile) fd.reset();
  return fd;
}

FileDescriptor makeFolder(int folder, const std::string& name) {
  if (::mkdirat(folder, name.c_str(), 0700) != 0 && errno != EEXIST) {
    throw systemError(errno, "creating the folder " + name);
  }
  FileDescriptor fd = openFolder(folder, name);
  if (!fd) throw OperationError(kind::io, name + " is in the way: it is not a folder");
  return fd;
}

void forEachEntry(int folder, const std::function<void(const std::string& name)>& visit) {
  // A description of its own: reading must not move the position that other readers of `folder`
  // see.
  FileDescriptor own(::openat(folder, ".", folderFlags));
  if (!own) throw systemError(errno, "reading a folder");
  const std::unique_ptr<DIR, int (*)(DIR*)> directory(::fdopendir(own.get()), ::closedir);
  if (!directory) throw systemError(errno, "reading a folder");
  own.release();
  while (true) {
    errno = 0;
    const dirent* entry = ::readdir(directory.get());
    if (entry == nullptr && errno != 0) throw systemError(errno, "reading a folder");
    if (entry == nullptr) return;
    const std::string name = entry->d_name;
    if (name != "." && name != "..") visit(name);
  }
}

void syncDescriptor(int fd) {
  // Some file systems have no way to sync a folder, and say so.
  if (::fsync(fd) != 0 && errno != EINVAL && errno != EROFS) throw systemError(errno, "syncing");
}

void syncTree(int folder, const std::string& name) {
  if (const FileDescriptor sub = openFolder(folder, name)) {
    forEachEntry(sub.get(), [&](const std::string& child) { syncTree(sub.get(), child); });
    syncDescriptor(sub.get());
  } else if (const FileDescriptor file = openFile(folder, name)) {
    syncDescriptor(file.get());
  }
}

void removeTree(int folder, const std::string& name) {
  if (::unlinkat(folder, name.c_str(), 0) == 0 || errno == ENOENT) return;
  const int unlinkError = errno;
  const FileDescriptor sub = openFolder(folder, name);
  if (!sub) throw systemError(unlinkError, "removing " + name);
  forEachEntry(sub.get(), [&](const std::string& child) { removeTree(sub.get(), child); });
  if (::unlinkat(folder, name.c_str(), AT_REMOVEDIR) != 0 && errno != ENOENT) {
    throw systemError(errno, "removing the folder " + name);
  }
}

MoveResult moveEntry(int fromFolder, const std::string& from, int toFolder, const std::string& to) {
  if (::renameat2(fromFolder, from.c_str(), toFolder, to.c_str(), RENAME_NOREPLACE) == 0) {
    return MoveResult::moved;
  }
  if (errno == EEXIST) return MoveResult::taken;
  if (errno == EXDEV) return MoveResult::otherFileSystem;
  if (errno != EINVAL && errno != ENOSYS) throw systemError(errno, "renaming " + from);
  // A file system without this flag: look first, which leaves the shortest of gaps.
  if (statEntry(toFolder, to)) return MoveResult::taken;
  if (::renameat(fromFolder, from.c_str(), toFolder, to.c_str()) == 0) return MoveResult::moved;
  if (errno == EXDEV) return MoveResult::otherFileSystem;
  throw systemError(errno, "renaming " + from);
}

bool exchangeEntries(int folderA, const std::string& a, int folderB, const std::string& b) {
  if (::renameat2(folderA, a.c_str(), folderB, b.c_str(), RENAME_EXCHANGE) == 0) return true;
  if (errno == EINVAL || errno == ENOSYS || errno == EOPNOTSUPP) return false;
  throw systemError(errno, "replacing " + b);
}

void replaceFile(int fromFolder, const std::string& from, int toFolder, const std::string& to) {
  if (::renameat(fromFolder, from.c_str(), toFolder, to.c_str()) != 0) {
    throw systemError(errno, "replacing " + to);
  }
}

}  // namespace tulo::host
