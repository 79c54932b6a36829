// What programs take out of the tree. What the host has is deleted there later; its row waits for
// that.
//
// Threads: every member may be called on any thread.
// Errors: an errno, 0 when all went well; DatabaseError where the replica cannot be written.
#pragma once

#include <string_view>

#include "service/edits/EditParts.h"

namespace tulo {

class Removals {
 public:
  explicit Removals(const EditParts& parts) : parts_(parts) {}

  int removeFile(NodeId folder, std::string_view name);
  // The folder must have been listed just now: what is not known to be empty is not removed.
  int removeFolder(NodeId folder, std::string_view name);

  // The same of one node inside a transaction, whatever is in it.
  int remove(ReplicaWriter& writer, const Node& node) const;
  // 0 when the folder is known to be empty.
  static int errorOfEmptiness(ReplicaWriter& writer, const Node& folder);

 private:
  int removeFile(ReplicaWriter& writer, NodeId folder, std::string_view name) const;
  int removeFolder(ReplicaWriter& writer, NodeId folder, std::string_view name) const;

  const EditParts& parts_;
};

}  // namespace tulo
