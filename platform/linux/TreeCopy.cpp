#include "platform/linux/TreeCopy.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <system_error>
#include <utility>
#include <vector>

#include "platform/linux/FileCopy.h"
#include "platform/linux/FolderEntries.h"

namespace tulo::platform {

namespace {

// Thrown for what no errno stands for.
class Refusal : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

[[noreturn]] void throwLastError() {
  throw std::system_error(errno, std::generic_category());
}

struct Place {
  int folder;
  const std::string& name;
};

struct stat statusOf(const Place& place) {
  struct stat status {};
  if (fstatat(place.folder, place.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
    throwLastError();
  }
  return status;
}

bool isSame(const struct stat& one, const struct stat& other) {
  return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

// Folders first get a mode that lets the copy go on inside, whatever their own one is.
void makeFolder(const Place& place) {
  if (mkdirat(place.folder, place.name.c_str(), S_IRWXU) != 0) throwLastError();
}

void copyLink(const Place& from, const struct stat& status, const Place& to) {
  // The size of a link is a promise that not every file system keeps.
  std::string target(static_cast<std::size_t>(status.st_size) + 1, '\0');
  while (true) {
    const ssize_t length = readlinkat(from.folder, from.name.c_str(), target.data(), target.size());
    if (length < 0) throwLastError();
    if (static_cast<std::size_t>(length) < target.size()) {
      target.resize(static_cast<std::size_t>(length));
      break;
    }
    target.resize(target.size() * 2);
  }
  if (symlinkat(target.c_str(), to.folder, to.name.c_str()) != 0) throwLastError();
  const std::array<timespec, 2> times = {timespec{0, UTIME_OMIT}, status.st_mtim};
  // A link's time is a nicety.
  utimensat(to.folder, to.name.c_str(), times.data(), AT_SYMLINK_NOFOLLOW);
}

void copyFile(const Place& from, const Place& to) {
  // Should a pipe have taken the file's place since it was looked at, opening it must not wait.
  const FileDescriptor source =
      openFile(from.folder, from.name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY);
  struct stat status {};
  if (!source || fstat(source.get(), &status) != 0) throwLastError();
  if (!S_ISREG(status.st_mode)) throw Refusal("not a regular file any more");
  const FileDescriptor target =
      openFile(to.folder, to.name, O_WRONLY | O_CREAT | O_EXCL, S_IRUSR | S_IWUSR);
  if (!target) throwLastError();
  copyFileBytes(source.get(), target.get());
  copyExtendedAttributes(source.get(), target.get());
  copyModeAndTime(status, target.get());
}

// Copies anything but a folder.
void copyLeaf(const Place& from, const struct stat& status, const Place& to) {
  if (S_ISREG(status.st_mode)) {
    copyFile(from, to);
  } else if (S_ISLNK(status.st_mode)) {
    copyLink(from, status, to);
  } else if (S_ISFIFO(status.st_mode)) {
    throw Refusal("a pipe cannot be copied");
  } else if (S_ISSOCK(status.st_mode)) {
    throw Refusal("a socket cannot be copied");
  } else {
    throw Refusal("a device cannot be copied");
  }
}

// Runs the step and lets its failure say which path it concerns.
template <typename Step>
void concerning(const std::string& path, const Step& step) {
  try {
    step();
  } catch (const std::system_error& failure) {
    throw TreeCopyError(path + ": " + failure.code().message());
  } catch (const Refusal& refusal) {
    throw TreeCopyError(path + ": " + refusal.what());
  }
}

class FolderCopy {
 public:
  FolderCopy(std::string sourcePath, FileDescriptor source, FileDescriptor target)
      : sourcePath_(std::move(sourcePath)), source_(std::move(source)), target_(std::move(target)) {
    if (fstat(target_.get(), &targetStatus_) != 0) throwLastError();
  }

  void run() {
    // Folders stand in the list before the ones that they hold; the list grows while it is walked.
    for (std::size_t index = 0; index < folders_.size(); ++index) {
      const std::string path = folders_[index];
      concerning(shown(path), [&] { copyEntries(path); });
    }
    // From the deepest up, since each entry made in a folder moves its time.
    while (!folders_.empty()) {
      concerning(shown(folders_.back()), [this] { finishFolder(folders_.back()); });
      folders_.pop_back();
    }
  }

 private:
  std::string shown(const std::string& path) const {
    return path.empty() ? sourcePath_ : sourcePath_ + '/' + path;
  }

  void copyEntries(const std::string& path) {
    const FileDescriptor from = openFolderBelow(source_.get(), path);
    if (!from) throwLastError();
    const FileDescriptor to = openFolderBelow(target_.get(), path);
    if (!to) throwLastError();
    for (const FolderEntry& entry : folderEntries(from)) {
      const std::string entryPath = joinedPath(path, entry.name);
      concerning(shown(entryPath), [&] {
        copyEntry({from.get(), entry.name}, {to.get(), entry.name}, entryPath);
      });
    }
  }

  void copyEntry(const Place& from, const Place& to, const std::string& path) {
    const struct stat status = statusOf(from);
    if (!S_ISDIR(status.st_mode)) {
      copyLeaf(from, status, to);
      return;
    }
    // The same folder can be mounted in two places, which no comparison of paths would show.
    if (isSame(status, targetStatus_)) throw Refusal("a folder cannot be copied into itself");
    makeFolder(to);
    folders_.push_back(path);
  }

  void finishFolder(const std::string& path) {
    const FileDescriptor from = openFolderBelow(source_.get(), path);
    const FileDescriptor to = openFolderBelow(target_.get(), path);
    struct stat status {};
    if (!from || !to || fstat(from.get(), &status) != 0) throwLastError();
    copyExtendedAttributes(from.get(), to.get());
    copyModeAndTime(status, to.get());
  }

  const std::string sourcePath_;
  const FileDescriptor source_;
  const FileDescriptor target_;
  struct stat targetStatus_ {};
  std::vector<std::string> folders_{std::string()};
};

bool isInside(int folder, const struct stat& ancestor) {
  FileDescriptor current = openFile(folder, ".", O_PATH | O_DIRECTORY);
  struct stat status {};
  while (current && fstat(current.get(), &status) == 0) {
    if (isSame(status, ancestor)) return true;
    FileDescriptor parent = openFile(current.get(), "..", O_PATH | O_DIRECTORY);
    struct stat above {};
    if (!parent || fstat(parent.get(), &above) != 0 || isSame(above, status)) return false;
    current = std::move(parent);
  }
  return false;
}

void copyFolder(const std::string& path, const struct stat& status, const Place& to) {
  constexpr int flags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW;
  if (isInside(to.folder, status)) throw Refusal("a folder cannot be copied into itself");
  FileDescriptor source = openFile(AT_FDCWD, path, flags);
  if (!source) throwLastError();
  makeFolder(to);
  FileDescriptor target = openFile(to.folder, to.name, flags);
  if (!target) throwLastError();
  FolderCopy(path, std::move(source), std::move(target)).run();
}

}  // namespace

void copyTree(const std::string& source, int targetFolder, const std::string& targetName) {
  const Place to{targetFolder, targetName};
  concerning(source, [&] {
    const Place from{AT_FDCWD, source};
    const struct stat status = statusOf(from);
    if (S_ISDIR(status.st_mode)) {
      copyFolder(source, status, to);
    } else {
      copyLeaf(from, status, to);
    }
  });
}

}  // namespace tulo::platform
