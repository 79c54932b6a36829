#include "host/account/Downloads.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "host/account/Uncollected.h"
#include "host/base/FileCopies.h"
#include "host/base/Files.h"
#include "host/base/HostError.h"

namespace tulo::host {

Downloads::Downloads(const Container& container, UlidSource& ulids, const HostLog& log)
    : container_(container), ulids_(ulids), log_(log) {
  open();
}

FileDescriptor Downloads::open() const {
  return makeFolder(container_.folder(), Container::downloadName);
}

std::string Downloads::handOver(int file) {
  const FileDescriptor folder = open();
  const std::string name = ulids_.next();
  constexpr int flags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
  const FileDescriptor copy(::openat(folder.get(), name.c_str(), flags, 0600));
  if (!copy) throw systemError(errno, "handing over a copy");
  try {
    copyContents(file, copy.get());
  } catch (const OperationError&) {
    ::unlinkat(folder.get(), name.c_str(), 0);
    throw;
  }
  return container_.pathOf(Container::downloadName) + "/" + name;
}

void Downloads::takeBack(const std::string& path) {
  ::unlink(path.c_str());
}

void Downloads::removeUncollected(std::chrono::seconds age,
                                  std::chrono::system_clock::time_point now) {
  const FileDescriptor folder = open();
  const auto isInUse = [](const std::string&) { return false; };
  for (const std::string& name : host::removeUncollected(folder.get(), age, now, isInUse, log_)) {
    log_.info("swept the copy " + inQuotes(name) + ", which nobody has fetched");
  }
}

}  // namespace tulo::host
