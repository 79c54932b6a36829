// What the host has not heard of, as far as it explains what a listing of one folder shows.
//
// Threads: belongs to the transaction of its writer.
// Errors: what the replica throws.
#pragma once

#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "service/listing/Listing.h"
#include "service/replica/Change.h"
#include "service/replica/ReplicaWriter.h"

namespace tulo {

class FolderChanges {
 public:
  FolderChanges(ReplicaWriter& writer, const Node& folder);

  // The change of a child here, or of what the host has in the folder; null when there is none.
  // Valid as long as this is.
  Change* of(NodeId node);

  // Whether the item, which is no child here, is one that this side has elsewhere or may be making
  // just now. If it was moved away or deleted here, the listing is what that is compared with.
  bool isOurs(const ItemRecord& item);
  // The latter, as far as names tell.
  bool isBeingMade(const ItemRecord& item);

  // The row of the item, which is no child here, if this side has moved it away.
  std::optional<Node> movedAway(const ItemRecord& item);

  // The host has the item in this folder and under that name.
  void rebase(Change& change, const ItemRecord& item);

 private:
  void add(std::vector<Change> changes);
  bool isElsewhere(const ItemRecord& item);

  ReplicaWriter& writer_;
  const NodeId folder_;
  const std::string identifier_;
  const bool nothingPending_;
  std::unordered_map<NodeId, Change> changes_;
};

}  // namespace tulo
