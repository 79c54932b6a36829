// The folder on the disk that an account serves, and which of its entries are served.
//
// Served are folders and regular files. Not served, and never followed: symbolic links, special
// files, folders of another file system, the shared container, and the host's own working folder.
//
// Threads: not thread-safe; the account guards it. Errors: OperationError.
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "host/base/EntryStat.h"
#include "host/base/HostLog.h"
#include "platform/linux/FileDescriptor.h"

namespace tulo::host {

class ServedFolder {
 public:
  // `container`: the folder that is never served, wherever it lies. `log` must outlive the object.
  ServedFolder(std::string path, const EntryStat& container, const HostLog& log);

  const std::string& path() const { return path_; }
  int descriptor() const { return folder_.get(); }

  // Throws `network` while the path names another folder or none: nothing must be concluded then
  // from what is missing in the one that is open.
  void requireThere();

  // What the entry `name` of `folder`, which has the identifier `parent`, is; nothing where it is
  // not there or is not served.
  std::optional<EntryStat> served(std::string_view parent, int folder, const std::string& name);
  // Whether the host keeps this name for itself.
  static bool isReserved(std::string_view parent, std::string_view name);
  // Logs, once, that what is in a folder cannot be read. `shownAs`: its name, for people.
  void tellUnreadable(const std::string& ulid, std::string_view shownAs, std::string_view reason);

 private:
  void tellOnce(const std::string& entry, std::string_view shownAs, std::string_view reason);

  std::string path_;
  FileDescriptor folder_;
  EntryStat opened_;
  EntryStat container_;
  const HostLog& log_;
  std::set<std::string> told_;
  bool toldGone_ = false;
};

}  // namespace tulo::host
