// One row of the host application's index: a folder or a file.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "platform/FileProvider.h"

namespace tulo {

// A value record without identity. Its producers state all nine fields; afterwards only the
// display name changes. The other fields are not const, so that a record can be moved.
struct IndexEntry {
  std::string ulid;                            // the row key, as stored
  std::string name;                            // as stored
  std::optional<std::string> parentUlid;       // absent at the top level
  bool isFolder;                               // a row of `folders`, not of `items`
  std::int64_t size;                           // bytes; 0 for folders
  platform::Date modified;                     // the epoch for folders
  std::int64_t versionNumber;                  // the content's version counter; 0 for folders
  std::optional<std::int64_t> lockedByUserId;  // absent for folders, and where nobody locks
  std::string displayName;                     // the name that the system is shown

  // A copy that differs only in its display name.
  IndexEntry withDisplayName(std::string newName) const {
    IndexEntry copy = *this;
    copy.displayName = std::move(newName);
    return copy;
  }
};

}  // namespace tulo
