// Rows of nodes that are out of the tree, and stay a while in case that their item turns up again.
//
// Threads: the functions run inside the transaction or reading session that they are given.
// Errors: DatabaseError.
#pragma once

#include <cstdint>
#include <vector>

#include "service/replica/ReplicaWriter.h"

namespace tulo::detachedNodes {

// Those that have been out of the tree since then or longer, by number, after the given one.
std::vector<NodeId> since(ReplicaReader& reader, WallSeconds latest, NodeId after,
                          std::int64_t limit);
// Those that are no item of the host's, and so cannot come back; the same way.
std::vector<NodeId> unknown(ReplicaReader& reader, NodeId after, std::int64_t limit);

// Those that left the tree when the clock was ahead count as having left it now.
void capTimes(ReplicaWriter& writer, WallSeconds now);

}  // namespace tulo::detachedNodes
