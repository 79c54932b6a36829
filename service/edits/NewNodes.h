// What programs make: files, folders, symbolic links. The row is in the replica, and the change in
// the journal, when a call returns.
//
// Threads: every member may be called on any thread.
// Errors: an errno in the result, 0 when all went well: EEXIST when the name is taken, EACCES when
// the folder allows no adding, ESTALE when it is gone. DatabaseError and ContentError where nothing
// can be written.
#pragma once

#include <functional>
#include <string_view>

#include "service/edits/EditParts.h"

namespace tulo {

struct EditResult {
  int error = 0;
  Entry entry;
};

class NewNodes {
 public:
  explicit NewNodes(const EditParts& parts) : parts_(parts) {}

  EditResult makeFile(NodeId folder, std::string_view name, int mode);
  // The same for a program that goes on with it: the contents are open in LocalFiles afterwards,
  // until LocalFiles::released.
  EditResult makeOpenFile(NodeId folder, std::string_view name, int mode);
  EditResult makeFolder(NodeId folder, std::string_view name, int mode);
  EditResult makeLink(NodeId folder, std::string_view name, std::string_view target);

 private:
  using Step = std::function<void(ReplicaWriter&, const Node&)>;

  // Makes the node and, in the same transaction, what the step adds to it.
  EditResult make(NodeId folder, Node node, const Step& added);
  EditResult insert(ReplicaWriter& writer, NodeId folder, Node node, const Step& added);
  void note(ReplicaWriter& writer, const Node& parent, const Node& node);

  const EditParts& parts_;
};

}  // namespace tulo
