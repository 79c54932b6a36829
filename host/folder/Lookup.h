// Which node a request means, looked at afresh: another program may just have changed or moved it.
//
// Threads: not thread-safe; the account guards it.
// Errors: OperationError (not_found for what is not there), sqlite::DatabaseError.
#pragma once

#include <optional>
#include <string>

#include "host/folder/FolderIndex.h"
#include "host/folder/Node.h"
#include "host/folder/Places.h"
#include "host/folder/Tree.h"

namespace tulo::host {

[[noreturn]] void notFound(const std::string& ulid);

class Lookup {
 public:
  // All must outlive the object.
  Lookup(FolderIndex& index, Places& places, Tree& tree)
      : index_(index), places_(places), tree_(tree) {}

  std::optional<Node> find(const std::string& ulid);
  Node require(const std::string& ulid, bool isFolder);
  Place requirePlace(const std::string& ulid);
  // By a path on the disk below the account's folder; bad_request for one that leads out of it.
  Node requireAtDiskPath(const std::string& path, const std::string& root);

 private:
  FolderIndex& index_;
  Places& places_;
  Tree& tree_;
};

}  // namespace tulo::host
