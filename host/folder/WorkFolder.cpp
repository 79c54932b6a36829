#include "host/folder/WorkFolder.h"

#include <fcntl.h>

#include <cerrno>

#include "host/base/EntryStat.h"
#include "host/base/Files.h"
#include "host/base/HostError.h"

namespace tulo::host {

WorkFolder::WorkFolder(int root) : root_(::fcntl(root, F_DUPFD_CLOEXEC, 0)) {
  if (!root_) throw systemError(errno, "opening the working folder");
}

FileDescriptor WorkFolder::open() const {
  return makeFolder(root_.get(), name);
}

bool WorkFolder::isThere() const {
  return statEntry(root_.get(), name).has_value();
}

void WorkFolder::clear() const {
  removeTree(root_.get(), name);
}

}  // namespace tulo::host
