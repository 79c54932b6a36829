#include "host/folder/Placement.h"

#include <sys/stat.h>

#include "host/base/EntryStat.h"
#include "host/base/Files.h"
#include "host/base/HostError.h"
#include "host/base/HostLog.h"
#include "host/folder/FileName.h"

namespace tulo::host {

namespace {

constexpr unsigned mostVariants = 10'000;

}  // namespace

void Placement::moveToFreeName(int fromFolder, const std::string& from, const Place& to, Node& node,
                               const std::string& shownName, Announcement announcement) {
  for (unsigned number = 1; number <= mostVariants; ++number) {
    node.diskName = diskNameVariant(shownName, number);
    if (!places_.isFree(to, node.diskName)) continue;
    if (announcement == Announcement::needed) {
      index_.intents().announce(node, shownName);
      index_.database().commit();
    }
    const MoveResult result = moveEntry(fromFolder, from, to.folder.get(), node.diskName);
    if (result == MoveResult::taken) continue;
    if (result == MoveResult::otherFileSystem) {
      throw OperationError(kind::io, "the target folder lies on another file system");
    }
    syncDescriptor(to.folder.get());
    syncDescriptor(fromFolder);
    return;
  }
  throw OperationError(kind::invalidName, "there are too many items named " + inQuotes(shownName));
}

void replaceContents(const WorkItem& item, const Place& place, const std::string& diskName) {
  const auto old = statEntry(place.folder.get(), diskName);
  if (!old) throw OperationError(kind::notFound, "there is no item " + inQuotes(diskName));
  const FileDescriptor fresh =
      old->isFolder ? openFolder(item.folder(), item.name()) : openFile(item.folder(), item.name());
  // A file stays as executable, or as private, as it was.
  if (fresh) static_cast<void>(::fchmod(fresh.get(), old->mode & 0777));
  if (!exchangeEntries(item.folder(), item.name(), place.folder.get(), diskName)) {
    if (old->isFolder) throw OperationError(kind::io, "the file system cannot replace a folder");
    replaceFile(item.folder(), item.name(), place.folder.get(), diskName);
  }
  syncDescriptor(place.folder.get());
}

}  // namespace tulo::host
