#include "service/replica/ContentStore.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "service/errors/ContentError.h"

namespace tulo {

namespace {

constexpr unsigned kFolders = 256;
constexpr std::size_t kCopyPiece = 1 << 20;
// With more files than that it is cheaper to force the whole file system once: each file by itself
// is a wait for the disk, and holds up those who write meanwhile.
constexpr std::size_t kForcedSingly = 8;
constexpr const char* kNameAttribute = "user.tulo.name";

std::string folderName(unsigned index) {
  std::array<char, 8> name{};
  std::snprintf(name.data(), name.size(), "%02x", index);
  return name.data();
}

[[noreturn]] void fail(const std::string& what, int number) {
  throw ContentError(number, what + ": " + std::strerror(number));
}

void makeDirectory(const std::string& path) {
  if (::mkdir(path.c_str(), 0700) != 0 && errno != EEXIST) fail("cannot create " + path, errno);
}

void checkSize(const std::string& path, int file, std::int64_t size, struct stat& status) {
  if (::fstat(file, &status) != 0) fail("cannot look at " + path, errno);
  if (!S_ISREG(status.st_mode)) throw ContentError(EIO, path + " is not a regular file");
  if (status.st_size == size) return;
  throw ContentError(EIO, path + " has " + std::to_string(status.st_size) + " bytes, not the " +
                              std::to_string(size) + " expected");
}

void copyBytes(int from, int to, const std::string& name) {
  if (::ioctl(to, FICLONE, from) == 0) return;
  for (;;) {
    const ssize_t count = ::copy_file_range(from, nullptr, to, nullptr, kCopyPiece, 0);
    if (count == 0) return;
    if (count > 0 || errno == EINTR) continue;
    if (errno != EXDEV && errno != EINVAL && errno != ENOSYS && errno != EOPNOTSUPP) {
      fail("cannot copy " + name, errno);
    }
    break;
  }
  std::string buffer(kCopyPiece, '\0');
  for (;;) {
    const ssize_t count = ::read(from, buffer.data(), buffer.size());
    if (count == 0) return;
    if (count < 0) fail("cannot read " + name, errno);
    for (ssize_t done = 0; done < count;) {
      const ssize_t written =
          ::write(to, buffer.data() + done, static_cast<std::size_t>(count - done));
      if (written < 0) fail("cannot copy " + name, errno);
      done += written;
    }
  }
}

}  // namespace

ContentStore::ContentStore(const std::string& directory, const std::string& shared,
                           CacheLimits limits)
    : directory_(directory + "/contents"), handOver_(shared), room_(directory_, limits) {
  makeDirectory(directory_);
}

std::string ContentStore::path(ContentId content) const {
  return directory_ + '/' + folderName(static_cast<unsigned>(content.number() % kFolders)) + '/' +
         std::to_string(content.number());
}

std::int64_t ContentStore::take(const std::string& source, std::int64_t size, ContentId content) {
  struct stat status = {};
  const bool given = handOver_.isGiven(source);
  const FileDescriptor file = handOver_.open(source);
  checkSize(source, file.get(), size, status);
  const std::string target = path(content);
  makeDirectory(target.substr(0, target.rfind('/')));
  // A file with another name somewhere could still be written to by that name.
  if (given && status.st_nlink == 1 && ::rename(source.c_str(), target.c_str()) == 0) {
    ::fchmod(file.get(), 0600);
    return status.st_blocks;
  }
  const FileDescriptor copy(::open(target.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
  if (!copy) fail("cannot create " + target, errno);
  try {
    copyBytes(file.get(), copy.get(), source);
    if (::fstat(copy.get(), &status) != 0) fail("cannot look at " + target, errno);
    if (status.st_size != size) throw ContentError(EIO, source + " changed while it was copied");
  } catch (const ContentError&) {
    ::unlink(target.c_str());
    throw;
  }
  handOver_.discard(source);
  return status.st_blocks;
}

FileDescriptor ContentStore::open(ContentId content, std::int64_t size) const {
  struct stat status = {};
  FileDescriptor file = openAsIs(content);
  checkSize(path(content), file.get(), size, status);
  return file;
}

FileDescriptor ContentStore::openAsIs(ContentId content) const {
  constexpr int flags = O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
  FileDescriptor file(::open(path(content).c_str(), flags));
  if (!file) fail("cannot open " + path(content), errno);
  return file;
}

void ContentStore::remove(ContentId content) const {
  ::unlink(path(content).c_str());
}

FileDescriptor ContentStore::create(ContentId content, const std::string& name) const {
  const std::string target = path(content);
  const auto open = [&] {
    return FileDescriptor(::open(target.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
  };
  FileDescriptor file = open();
  if (!file && errno == ENOENT) {
    makeDirectory(target.substr(0, target.rfind('/')));
    file = open();
  }
  if (!file) fail("cannot create " + target, errno);
  if (::fsetxattr(file.get(), kNameAttribute, name.data(), name.size(), 0) != 0) {
    fail("cannot note the name of " + target, errno);
  }
  return file;
}

FileDescriptor ContentStore::openWritable(ContentId content) const {
  FileDescriptor file(::open(path(content).c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW));
  if (!file) fail("cannot open " + path(content), errno);
  return file;
}

FileDescriptor ContentStore::duplicate(ContentId from, ContentId to,
                                       const std::string& name) const {
  const FileDescriptor source = openWritable(from);
  FileDescriptor copy = create(to, name);
  copyBytes(source.get(), copy.get(), path(from));
  return copy;
}

void ContentStore::setName(ContentId content, const std::string& name) const {
  const std::string target = path(content);
  if (::setxattr(target.c_str(), kNameAttribute, name.data(), name.size(), 0) != 0) {
    fail("cannot note the name of " + target, errno);
  }
}

void ContentStore::forgetName(ContentId content) const {
  ::removexattr(path(content).c_str(), kNameAttribute);
}

std::optional<std::string> ContentStore::nameOf(const std::string& path) {
  std::array<char, 4096> name{};
  const ssize_t size = ::getxattr(path.c_str(), kNameAttribute, name.data(), name.size());
  if (size < 0) return std::nullopt;
  return std::string(name.data(), static_cast<std::size_t>(size));
}

int ContentStore::force(ContentId content) const {
  const FileDescriptor file(::open(path(content).c_str(), O_RDONLY | O_CLOEXEC));
  return file && ::fsync(file.get()) == 0 ? 0 : errno;
}

std::vector<ContentId> ContentStore::makeDurable(const std::vector<ContentId>& contents) const {
  std::vector<ContentId> safe;
  if (contents.size() <= kForcedSingly) {
    std::copy_if(contents.begin(), contents.end(), std::back_inserter(safe),
                 [this](ContentId content) { return force(content) == 0; });
    return safe;
  }
  const FileDescriptor directory(::open(directory_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!directory) return safe;
  // What is not there cannot be safe, even if it comes meanwhile.
  std::copy_if(contents.begin(), contents.end(), std::back_inserter(safe),
               [this](ContentId content) { return ::access(path(content).c_str(), F_OK) == 0; });
  return ::syncfs(directory.get()) == 0 ? safe : std::vector<ContentId>();
}

}  // namespace tulo
