// What the user wants to have here at all times.
//
// Threads: the functions run inside the transaction or reading session that they are given.
// Errors: DatabaseError.
#pragma once

#include <cstdint>
#include <vector>

#include "service/replica/ReplicaWriter.h"

namespace tulo::keptNodes {

// All folders that are kept.
std::vector<NodeId> folders(ReplicaReader& reader);
// Some of those that were never listed.
std::vector<NodeId> unlistedFolders(ReplicaReader& reader, std::int64_t limit);
// Kept files without contents, by number, after the given one.
std::vector<NodeId> missingFiles(ReplicaReader& reader, NodeId after, std::int64_t limit);

// Asked for by the user, for the node itself.
void setPinned(ReplicaWriter& writer, NodeId node, bool pinned);
// Pinned, or in a folder that is kept.
void set(ReplicaWriter& writer, NodeId node, bool kept);
// Whether all that is under a folder is kept; what is pinned itself stays so.
void setBelow(ReplicaWriter& writer, NodeId folder, bool kept);

}  // namespace tulo::keptNodes
