// Under which name an item is shown in a folder in which another one may have it.
//
// Threads: inside the session or transaction. Errors: what the replica throws.
#pragma once

#include <string>

#include "service/listing/Listing.h"
#include "service/replica/ReplicaReader.h"

namespace tulo {

// The item's own name, spelled as a folder can hold it; with a mark when that is taken.
std::string freeName(ReplicaReader& replica, NodeId folder, const ItemRecord& item);

}  // namespace tulo
