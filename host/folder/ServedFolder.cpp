#include "host/folder/ServedFolder.h"

#include <fcntl.h>

#include <utility>

#include "host/base/Files.h"
#include "host/base/HostError.h"
#include "host/folder/WorkFolder.h"
#include "host/index/IndexRows.h"

namespace tulo::host {

namespace {

constexpr std::size_t mostTold = 200;

bool isSame(const EntryStat& one, const EntryStat& other) {
  return one.device == other.device && one.inode == other.inode;
}

}  // namespace

ServedFolder::ServedFolder(std::string path, const EntryStat& container, const HostLog& log)
    : path_(std::move(path)),
      folder_(openFolderPath(path_)),
      opened_(statDescriptor(folder_.get())),
      container_(container),
      log_(log) {}

void ServedFolder::requireThere() {
  const auto stat = statEntry(AT_FDCWD, path_);
  if (stat && isSame(*stat, opened_)) {
    toldGone_ = false;
    return;
  }
  const std::string message = "the folder " + path_ + " has been moved or removed";
  if (!toldGone_) log_.error(message + "; the index stays as it is until it is back");
  toldGone_ = true;
  throw OperationError(kind::network, message);
}

bool ServedFolder::isReserved(std::string_view parent, std::string_view name) {
  return parent == rootUlid && name == WorkFolder::name;
}

std::optional<EntryStat> ServedFolder::served(std::string_view parent, int folder,
                                              const std::string& name) {
  if (isReserved(parent, name)) return std::nullopt;
  auto stat = statEntry(folder, name);
  if (!stat) return std::nullopt;
  std::string_view reason;
  if (stat->isOther()) {
    reason = "is neither a file nor a folder";
  } else if (isSame(*stat, container_)) {
    reason = "is the shared container";
  } else if (stat->isFolder && stat->device != opened_.device) {
    reason = "lies on another file system";
  }
  if (reason.empty()) return stat;
  tellOnce(std::string(parent) + "/" + name, name, reason);
  return std::nullopt;
}

void ServedFolder::tellUnreadable(const std::string& ulid, std::string_view shownAs,
                                  std::string_view reason) {
  tellOnce(ulid + "/", shownAs,
           "cannot be read, and what is known of it stays: " + std::string(reason));
}

void ServedFolder::tellOnce(const std::string& entry, std::string_view shownAs,
                            std::string_view reason) {
  if (told_.size() >= mostTold || !told_.insert(entry).second) return;
  log_.info("not serving " + inQuotes(shownAs) + ": it " + std::string(reason));
  if (told_.size() == mostTold) log_.info("further entries are left out without a word");
}

}  // namespace tulo::host
