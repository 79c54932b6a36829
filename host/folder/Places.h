// Where the nodes of an account are on the disk.
//
// Threads: not thread-safe; the account guards it. Errors: OperationError, sqlite::DatabaseError.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "host/folder/Node.h"
#include "host/folder/NodeStore.h"
#include "host/folder/ServedFolder.h"
#include "platform/linux/FileDescriptor.h"

namespace tulo::host {

// A folder that is open for a change of what is in it.
struct Place {
  std::string ulid;
  FileDescriptor folder;
};

class Places {
 public:
  // Both must outlive the object.
  Places(ServedFolder& folder, NodeStore& nodes) : folder_(folder), nodes_(nodes) {}

  // A folder by its identifier; an invalid descriptor if it is not (or no longer) there.
  FileDescriptor open(std::string_view ulid);
  // What is served under this name in a folder.
  std::optional<EntryStat> entry(std::string_view parent, const std::string& name);
  // Whether something of its kind is where the node was last.
  bool hasEntryOf(const Node& node);
  // Whether `name` can be given to a new entry of the folder.
  bool isFree(const Place& place, const std::string& name);

 private:
  ServedFolder& folder_;
  NodeStore& nodes_;
};

}  // namespace tulo::host
