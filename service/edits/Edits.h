// What programs change in the tree: names, folders, attributes. Each call is one transaction, in
// the replica and its journal when it returns; the host hears of it later.
//
// Threads: every member may be called on any thread.
// Errors: an errno, 0 when all went well; DatabaseError where the replica cannot be written.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "service/edits/EditParts.h"
#include "service/edits/NewNodes.h"
#include "service/edits/Removals.h"
#include "service/edits/Renames.h"

namespace tulo {

class Edits {
 public:
  explicit Edits(EditParts parts);

  EditResult makeFile(NodeId folder, std::string_view name, int mode) {
    return newNodes_.makeFile(folder, name, mode);
  }
  EditResult makeOpenFile(NodeId folder, std::string_view name, int mode) {
    return newNodes_.makeOpenFile(folder, name, mode);
  }
  EditResult makeFolder(NodeId folder, std::string_view name, int mode = 0700) {
    return newNodes_.makeFolder(folder, name, mode);
  }
  EditResult makeLink(NodeId folder, std::string_view name, std::string_view target) {
    return newNodes_.makeLink(folder, name, target);
  }
  // Nothing for what is no symbolic link.
  std::optional<std::string> readLink(NodeId link) const;

  int removeFile(NodeId folder, std::string_view name) {
    return removals_.removeFile(folder, name);
  }
  int removeFolder(NodeId folder, std::string_view name) {
    return removals_.removeFolder(folder, name);
  }
  int rename(NodeId folder, std::string_view name, NodeId newFolder, std::string_view newName,
             unsigned flags) {
    return renames_.rename({folder, name, newFolder, newName, flags});
  }

  // Kept here; the host knows no such thing.
  int setMode(NodeId node, int mode);
  // 0 when a program may write to the file.
  int mayWrite(NodeId node) const;

  const LocalNames& localNames() const { return parts_.localNames; }

 private:
  const EditParts parts_;
  NewNodes newNodes_;
  Removals removals_;
  Renames renames_;
};

}  // namespace tulo
