#include "cli/MountedPaths.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <optional>
#include <utility>

#include "cli/ServiceClient.h"
#include "service/base/ServicePaths.h"

namespace tulo::cli {

namespace {

using control::ChangesRequest;
using control::DeletedName;

// Nothing when there is no such file.
std::optional<struct stat> look(const std::string& path) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) == 0) return status;
  if (errno == ENOENT) return std::nullopt;
  throw ServiceError(path + ": " + std::strerror(errno));
}

std::filesystem::path whole(const std::string& path) {
  std::filesystem::path result = std::filesystem::absolute(path).lexically_normal();
  return result.has_filename() ? result : result.parent_path();
}

template <typename T>
void add(std::optional<std::vector<T>>& list, T item) {
  if (!list) list.emplace();
  list->push_back(std::move(item));
}

}  // namespace

// Inode numbers are the service's own numbers.
std::map<std::string, ChangesRequest> namedByDomain(const std::vector<std::string>& paths,
                                                    Deleted deleted) {
  std::map<std::string, ChangesRequest> result;
  for (const std::string& path : paths) {
    const std::string folder = whole(path).parent_path();
    if (const auto status = look(path)) {
      // Of a link the attributes would be those of what it points to.
      const std::string domain = domainOfPath(S_ISLNK(status->st_mode) ? folder : path);
      add(result[domain].nodes, NodeId(status->st_ino));
      continue;
    }
    const auto above = deleted == Deleted::isMeant ? look(folder) : std::nullopt;
    if (!above) throw ServiceError(path + ": " + std::strerror(ENOENT));
    add(result[domainOfPath(folder)].deleted,
        DeletedName{NodeId(above->st_ino), whole(path).filename().string()});
  }
  return result;
}

}  // namespace tulo::cli
