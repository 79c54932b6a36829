// Going up from a node to the root.
//
// Threads: inside the transaction or reading session that is given.
// Errors: DatabaseError.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>

#include "service/replica/ReplicaReader.h"

namespace tulo {

// No path is deeper. Every way up ends after so many steps, also in a tree that goes round in a
// circle.
inline constexpr std::size_t kDeepest = 4096;

// The first for which the predicate holds of the node, the folder that it is in, and so on up to
// the root.
std::optional<Node> firstUpwards(ReplicaReader& reader, NodeId from,
                                 const std::function<bool(const Node&)>& holds);

// Whether the node is the ancestor or below it.
bool isInside(ReplicaReader& reader, NodeId node, NodeId ancestor);

}  // namespace tulo
