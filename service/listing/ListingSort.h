// What a listing means for each child of a folder: which rows are new, which stay, which go.
//
// What was changed here and not sent yet is merged into what the listing says, and what the host
// acknowledged since the listing was read is left as it is.
//
// Threads: inside the transaction. Errors: what the replica throws.
#pragma once

#include <deque>
#include <string>
#include <unordered_set>
#include <vector>

#include "service/kernel/OpenFiles.h"
#include "service/listing/FolderChanges.h"
#include "service/listing/Listing.h"
#include "service/replica/Node.h"

namespace tulo {

// A child that stays, or comes from elsewhere in the tree, and is to be as the item says.
struct KeptItem {
  Node before;
  const ItemRecord* item = nullptr;
  bool renamed = false;
  bool elsewhere = false;  // it stays in the folder into which it was moved here
};

// Refers to the listing and the children that it was made from.
struct SortedListing {
  std::vector<const ItemRecord*> fresh;
  std::vector<KeptItem> kept;  // only what is different now
  std::vector<const Node*> missing;
  // Items as this side has changed them, which some of the kept ones refer to.
  std::deque<ItemRecord> merged;
  // Something of the listing is not taken over, so the same listing is to be looked at again.
  bool incomplete = false;
  bool outdated = false;  // some of it is newer here, or the host has yet to say what is ours
};

// What the sorting goes by.
struct SortParts {
  const Listing& listing;
  const std::vector<Node>& children;
  const std::unordered_set<std::string>& newer;  // identifiers
  FolderChanges& changes;
  const OpenFiles& openFiles;
};

SortedListing sortOut(const SortParts& parts);

}  // namespace tulo
