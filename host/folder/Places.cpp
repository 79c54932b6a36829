#include "host/folder/Places.h"

#include <fcntl.h>

#include <cerrno>
#include <vector>

#include "host/base/Files.h"
#include "host/base/HostError.h"
#include "host/index/IndexRows.h"

namespace tulo::host {

namespace {

constexpr std::size_t deepestFolder = 10'000;

}  // namespace

FileDescriptor Places::open(std::string_view ulid) {
  std::vector<std::string> names;
  std::string current(ulid);
  while (current != rootUlid) {
    const auto node = nodes_.node(current);
    if (!node || !node->isFolder || names.size() > deepestFolder) return {};
    names.push_back(node->diskName);
    current = node->parent;
  }
  FileDescriptor folder(::fcntl(folder_.descriptor(), F_DUPFD_CLOEXEC, 0));
  if (!folder) throw systemError(errno, "opening the folder");
  for (auto name = names.rbegin(); folder && name != names.rend(); ++name) {
    folder = openFolder(folder.get(), *name);
  }
  return folder;
}

std::optional<EntryStat> Places::entry(std::string_view parent, const std::string& name) {
  const FileDescriptor folder = open(parent);
  return folder ? folder_.served(parent, folder.get(), name) : std::nullopt;
}

bool Places::hasEntryOf(const Node& node) {
  const auto stat = entry(node.parent, node.diskName);
  return stat && stat->isFolder == node.isFolder;
}

bool Places::isFree(const Place& place, const std::string& name) {
  if (ServedFolder::isReserved(place.ulid, name)) return false;
  return !statEntry(place.folder.get(), name) && !nodes_.child(place.ulid, name);
}

}  // namespace tulo::host
