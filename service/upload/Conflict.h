// Two versions of a file that grew from one: both stay.
//
// The one here goes on as an item of its own, under its number, so that whoever has it open keeps
// it; the host's becomes a new one under the former name.
//
// Threads: used inside one transaction in which the node's contents cannot change.
// Errors: DatabaseError.
#pragma once

#include "service/kernel/Notifier.h"
#include "service/listing/Listing.h"
#include "service/replica/Change.h"
#include "service/upload/UploaderParts.h"

namespace tulo {

class Conflict {
 public:
  Conflict(const UploaderParts& parts, ReplicaWriter& writer) : parts_(parts), writer_(writer) {}

  // Parts the node from the item that the host has now. Returns what the kernel has to hear of it;
  // nothing is done to what was deleted here meanwhile.
  Invalidations part(NodeId node, const ItemRecord& item);

 private:
  // Gives the node the name of a copy.
  void renameCopy(Node& node);
  // Has the contents here go up as a new item's.
  void startOver(const Node& node, Change& change);
  // Puts the host's item into the tree, and returns it.
  Node insertTheirs(const Node& ours, const ItemRecord& item);

  const UploaderParts& parts_;
  ReplicaWriter& writer_;
};

}  // namespace tulo
