#include "host/folder/WorkItem.h"

#include <sys/stat.h>

#include <cerrno>

#include "host/base/FileCopies.h"
#include "host/base/Files.h"
#include "host/base/HostError.h"

namespace tulo::host {

WorkItem::WorkItem(FileDescriptor work, std::string name, const HostLog& log)
    : work_(std::move(work)), name_(std::move(name)), log_(log) {}

WorkItem::~WorkItem() {
  try {
    removeTree(work_.get(), name_);
  } catch (const OperationError& error) {
    log_.error("cannot clear the working folder: " + std::string(error.what()));
  }
}

void WorkItem::fill(const StagedCopy* copy) {
  if (copy != nullptr) {
    take(*copy);
  } else {
    makeEmptyFolder();
  }
}

void WorkItem::take(const StagedCopy& copy) {
  if (moveEntry(copy.folder(), copy.name(), work_.get(), name_) == MoveResult::otherFileSystem) {
    copyTree(copy.folder(), copy.name(), work_.get(), name_);
  }
  FileDescriptor entry = openFolder(work_.get(), name_);
  if (!entry) entry = openFile(work_.get(), name_);
  if (!entry) throw OperationError(kind::io, "the staged copy cannot be read");
  // The host must be able to read and replace it later, and no copy gets special rights.
  const EntryStat stat = statDescriptor(entry.get());
  const mode_t mode = (stat.mode & 0777) | (stat.isFolder ? 0700 : 0600);
  if (::fchmod(entry.get(), mode) != 0) throw systemError(errno, "taking a staged copy over");
  syncTree(work_.get(), name_);
}

void WorkItem::makeEmptyFolder() {
  if (::mkdirat(work_.get(), name_.c_str(), 0777) != 0) {
    throw systemError(errno, "making a folder");
  }
}

EntryStat WorkItem::stat() const {
  const auto stat = statEntry(work_.get(), name_);
  if (!stat) throw OperationError(kind::io, "the contents are gone from the working folder");
  return *stat;
}

}  // namespace tulo::host
