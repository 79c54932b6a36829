// Whether the host has under another identifier what it does not have under the known one.
//
// An account that was set up again gives its files new ones. The folders above are listed from the
// root downwards, which takes what has the same name for the same item.
//
// Threads: any, outside of transactions, which waits for the listings.
// Errors: DatabaseError; a runtime_error when a folder cannot be looked at now.
#pragma once

#include <string>
#include <vector>

#include "service/upload/Plan.h"
#include "service/upload/UploaderParts.h"

namespace tulo {

class Reappearance {
 public:
  explicit Reappearance(const UploaderParts& parts) : parts_(parts) {}

  // Of the item of the plan, and of the folder that it is to be put into. True: the change is to be
  // planned anew.
  bool ofItem(const Plan& plan);
  bool ofFolder(const Plan& plan);

 private:
  bool hasAnother(NodeId node, const std::string& identifier);
  // The folder that the host has the node in, from the root down.
  std::vector<NodeId> foldersAbove(NodeId node);

  const UploaderParts& parts_;
};

}  // namespace tulo
