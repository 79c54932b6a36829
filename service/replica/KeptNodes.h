// What the user wants to have here at all times.
//
// Threads: the functions run inside the transaction or reading session that they are given.
// Errors: DatabaseError.
#pragma once

#include <cstdint>
#include <vector>

#include "service/replica/Replica.h"

namespace tulo::keptNodes {

// All folders that are kept.
std::vector<NodeId> folders(ReplicaReader& reader);
// Some of those that were never listed.
std::vector<NodeId> unlistedFolders(ReplicaReader& reader, std::int64_t limit);
// Kept files without contents, by number, after the given one.
std::vector<NodeId> missingFiles(ReplicaReader& reader, NodeId after, std::int64_t limit);

// Whether all that is under a folder is kept; what is pinned itself stays so.
void setBelow(ReplicaWriter& writer, NodeId folder, bool kept);

}  // namespace tulo::keptNodes
