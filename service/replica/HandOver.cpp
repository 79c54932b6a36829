#include "service/replica/HandOver.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "service/errors/ContentError.h"

namespace tulo {

namespace {

constexpr const char* kPlace = "fp-download";

bool isWithin(const std::filesystem::path& folder, const std::filesystem::path& path) {
  return std::mismatch(folder.begin(), folder.end(), path.begin(), path.end()).first ==
         folder.end();
}

}  // namespace

HandOver::Lies HandOver::where(const std::string& path) const {
  namespace fs = std::filesystem;
  std::error_code error;
  const fs::path container = fs::canonical(container_, error);
  if (error) return Lies::outside;
  const fs::path folder = fs::canonical(fs::path(path).parent_path(), error);
  // What cannot be found cannot be taken either.
  if (error || !isWithin(container, folder)) return Lies::outside;
  // A link of that name would make a place of wherever it leads.
  const bool isFolder =
      fs::symlink_status(container / kPlace, error).type() == fs::file_type::directory;
  return isFolder && isWithin(container / kPlace, folder) ? Lies::inPlace : Lies::inContainer;
}

bool HandOver::isGiven(const std::string& path) const {
  const Lies lies = where(path);
  if (lies == Lies::inContainer) {
    throw ContentError(EIO, "the host names " + path + ", which is in the container but not in " +
                                kPlace + ", and so is not taken");
  }
  return lies == Lies::inPlace;
}

FileDescriptor HandOver::open(const std::string& path) const {
  isGiven(path);
  FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
  struct stat status = {};
  if (!file || ::fstat(file.get(), &status) != 0) {
    throw ContentError(errno, "cannot take " + path + ": " + std::strerror(errno));
  }
  if (!S_ISREG(status.st_mode)) throw ContentError(EIO, path + " is not a regular file");
  return file;
}

void HandOver::discard(const std::string& path) const {
  struct stat status = {};
  if (where(path) != Lies::inPlace || ::lstat(path.c_str(), &status) != 0) return;
  if (S_ISREG(status.st_mode)) ::unlink(path.c_str());
}

}  // namespace tulo
