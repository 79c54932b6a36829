#include "service/base/FileMark.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <optional>

namespace tulo {

namespace {

std::optional<struct statx> look(const std::string& path) {
  struct statx found = {};
  const unsigned wanted = STATX_INO | STATX_BTIME | STATX_CTIME;
  if (::statx(AT_FDCWD, path.c_str(), 0, wanted, &found) != 0) return std::nullopt;
  return found;
}

std::string textOf(const statx_timestamp& time) {
  return std::to_string(time.tv_sec) + '.' + std::to_string(time.tv_nsec);
}

// A number is given again after its file was removed, the time of a birth is not.
std::string markOf(const struct statx& found) {
  const std::string number = std::to_string(found.stx_ino);
  return (found.stx_mask & STATX_BTIME) != 0 ? number + '.' + textOf(found.stx_btime) : number;
}

}  // namespace

std::string fileMark(const std::string& path) {
  const auto found = look(path);
  if (!found) return {};
  return std::to_string(found->stx_dev_major) + '.' + std::to_string(found->stx_dev_minor) + '.' +
         markOf(*found);
}

std::string lastingFileMark(const std::string& path) {
  const auto found = look(path);
  return found ? markOf(*found) : std::string();
}

std::string changeMark(const std::string& path) {
  const auto found = look(path);
  return found ? std::to_string(found->stx_ino) + '.' + textOf(found->stx_ctime) : std::string();
}

}  // namespace tulo
