#include "service/mount/MountUsers.h"

#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>

namespace tulo {

namespace {

namespace fs = std::filesystem;

using Paths = std::vector<fs::path>;

// Empty where this user may not look, or nothing is there any more.
Paths entriesOf(const fs::path& folder) {
  Paths result;
  std::error_code error;
  for (fs::directory_iterator at(folder, error), end; !error && at != end; at.increment(error))
    result.push_back(at->path());
  return result;
}

std::string targetOf(const fs::path& link) {
  std::error_code error;
  const fs::path target = fs::read_symlink(link, error);
  return error ? std::string() : target.string();
}

bool liesIn(const std::string& path, const std::string& folder) {
  return path.starts_with(folder) && (path.size() == folder.size() || path[folder.size()] == '/');
}

// What is open. The kernel numbers the mount of each descriptor, so the name need not be believed.
struct OpenHandle {
  std::uint64_t mount = 0;
  bool writes = false;

  static OpenHandle of(const fs::path& information) {
    OpenHandle result;
    std::ifstream file(information);
    std::string key;
    std::string value;
    while (file >> key >> value) {
      if (key == "flags:") result.writes = (std::stoull(value, nullptr, 8) & O_ACCMODE) != O_RDONLY;
      if (key != "mnt_id:") continue;
      // What follows is of other kinds of descriptors.
      result.mount = std::stoull(value);
      break;
    }
    return result;
  }
};

std::optional<MountUser> byDescriptor(const fs::path& process, const MountedFileSystem& mount) {
  std::optional<MountUser> result;
  for (const fs::path& information : entriesOf(process / "fdinfo")) {
    const OpenHandle handle = OpenHandle::of(information);
    if (handle.mount != mount.number || (result && !handle.writes)) continue;
    result = MountUser{0, "", targetOf(process / "fd" / information.filename()), handle.writes};
    if (handle.writes) break;
  }
  return result;
}

std::optional<MountUser> byPlace(const fs::path& process, const MountedFileSystem& mount) {
  for (const char* link : {"cwd", "root", "exe"}) {
    const std::string path = targetOf(process / link);
    if (liesIn(path, mount.point)) return MountUser{0, "", path, false};
  }
  return std::nullopt;
}

// A line has the device as two hexadecimal numbers and the name as its last field.
std::optional<MountUser> byMapping(const fs::path& process, const MountedFileSystem& mount) {
  std::ifstream file(process / "maps");
  std::string line;
  while (std::getline(file, line)) {
    std::istringstream fields(line);
    std::string range;
    std::string rights;
    std::string offset;
    std::string inode;
    std::string path;
    unsigned major = 0;
    unsigned minor = 0;
    char colon = 0;
    fields >> range >> rights >> offset >> std::hex >> major >> colon >> minor >> inode;
    if (!fields || major != mount.major || minor != mount.minor) continue;
    std::getline(fields >> std::ws, path);
    return MountUser{0, "", path, rights == "rw-s"};
  }
  return std::nullopt;
}

std::optional<MountUser> userIn(const fs::path& process, const MountedFileSystem& mount) {
  auto result = byDescriptor(process, mount);
  if (!result) result = byMapping(process, mount);
  if (!result) result = byPlace(process, mount);
  return result;
}

std::string nameIn(const fs::path& process) {
  std::ifstream file(process / "comm");
  std::string name;
  std::getline(file, name);
  return name;
}

}  // namespace

std::vector<MountUser> usersOf(const MountedFileSystem& mount, const std::string& processes) {
  std::vector<MountUser> result;
  for (const fs::path& process : entriesOf(processes)) {
    const std::string text = process.filename();
    if (text.find_first_not_of("0123456789") != std::string::npos) continue;
    const auto number = static_cast<pid_t>(std::stol(text));
    auto user = number == ::getpid() ? std::nullopt : userIn(process, mount);
    if (!user) continue;
    user->process = number;
    user->name = nameIn(process);
    result.push_back(std::move(*user));
  }
  return result;
}

}  // namespace tulo
