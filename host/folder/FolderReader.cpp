#include "host/folder/FolderReader.h"

#include <algorithm>

#include "host/base/Files.h"
#include "host/base/HostError.h"
#include "host/index/IndexRows.h"

namespace tulo::host {

std::optional<FolderReader::Opened> FolderReader::read(const std::string& ulid) {
  Opened opened;
  const auto reading = [&] { opened = open(ulid); };
  // Nothing can be said at all where the top cannot be read.
  if (ulid == rootUlid) {
    reading();
  } else if (!canRead(ulid, reading)) {
    return std::nullopt;
  }
  // A folder that is gone is noticed by its own parent.
  if (!opened.folder) return std::nullopt;
  return opened;
}

FolderReader::Opened FolderReader::open(const std::string& ulid) {
  Opened opened{places_.open(ulid), {}};
  if (!opened.folder) return opened;
  // Before it is read, so that no change falls between the two.
  if (observer_) observer_(ulid, opened.folder.get());
  forEachEntry(opened.folder.get(), [&](const std::string& name) { opened.names.push_back(name); });
  std::sort(opened.names.begin(), opened.names.end());
  return opened;
}

FolderReader::Entry FolderReader::entry(const std::string& parent, const Opened& opened,
                                        const std::string& name) {
  Entry entry;
  entry.isRead =
      canRead(parent, [&] { entry.stat = folder_.served(parent, opened.folder.get(), name); });
  return entry;
}

FolderReader::Entry FolderReader::entry(const std::string& parent, const std::string& name) {
  Entry entry;
  entry.isRead = canRead(parent, [&] { entry.stat = places_.entry(parent, name); });
  return entry;
}

bool FolderReader::isGone(const Node& node) {
  bool isThere = true;
  return canRead(node.parent, [&] { isThere = places_.hasEntryOf(node); }) && !isThere;
}

bool FolderReader::canRead(const std::string& folder, const std::function<void()>& reading) {
  try {
    reading();
    return true;
  } catch (const OperationError& error) {
    folder_.tellUnreadable(folder, shownName(folder), error.what());
    unread_.insert(folder);
    return false;
  }
}

std::string FolderReader::shownName(const std::string& ulid) {
  const auto node = nodes_.node(ulid);
  return node ? node->diskName : std::string();
}

}  // namespace tulo::host
