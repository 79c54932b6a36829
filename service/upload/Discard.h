// Gives a change up: the host's state is shown again.
//
// What stepped aside for another has a name at the host that nobody gave it. It gets its former one
// again, or the one that it has here if that is taken by now.
//
// Threads: any, which may wait for the provider.
// Errors: DatabaseError.
#pragma once

#include <vector>

#include "service/upload/Provider.h"
#include "service/upload/Relisting.h"
#include "service/upload/Scheduler.h"
#include "service/upload/UploaderParts.h"

namespace tulo {

class Discard {
 public:
  Discard(const UploaderParts& parts, Scheduler& scheduler, Provider& provider,
          Relisting& relisting)
      : parts_(parts), scheduler_(scheduler), provider_(provider), relisting_(relisting) {}

  // 0 or an errno; Uploader::discard says which.
  int discard(NodeId node);

 private:
  // What is left to be told once the transaction is over.
  struct Undone {
    int error = 0;
    Invalidations invalidations;
    NodeId folder = kNoNode;  // to be listed again
  };
  Undone undo(ReplicaWriter& writer, NodeId node);
  // A folder that was only moved or renamed goes back, with all that is in it.
  Undone moveBack(ReplicaWriter& writer, Node node, const Change& change);
  // 0, or why a folder cannot go back into that one under that name.
  int mayMoveBack(ReplicaWriter& writer, const Node& node, const Node& home,
                  const std::string& name);

  // Has the item out of the name in between; 0 or an errno.
  int comeBack(NodeId node);
  int comeBackTo(Plan& plan, const std::vector<Place>& places);
  // EEXIST when the place is not free.
  int putBack(Plan& plan, const Place& place);

  const UploaderParts& parts_;
  Scheduler& scheduler_;
  Provider& provider_;
  Relisting& relisting_;
};

}  // namespace tulo
