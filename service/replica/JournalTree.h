// Changes and what stays here, seen along the tree: what is below a folder, and above a change.
//
// Threads: the functions run inside the transaction or reading session that they are given.
// Errors: DatabaseError.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "service/replica/ReplicaWriter.h"

namespace tulo::journal {

// Whether the node or anything below it has a change or is known here only.
bool anyBelow(ReplicaReader& reader, NodeId node);
// The same, but only what is to go up: new items, new contents, what was moved in from elsewhere.
// What stays on this machine is none of that, nor is another name of what the host has in that
// place.
bool anyToSendBelow(ReplicaReader& reader, NodeId node);
// What is below the folder and stays on this machine, without what is below that.
std::vector<NodeId> localBelow(ReplicaReader& reader, NodeId folder);
// The changes of the node and of all that is or was below it; what is deepest comes first.
std::vector<NodeId> within(ReplicaReader& reader, NodeId node);
// The node and what is below it with contents that were changed here and are not to be deleted.
std::vector<NodeId> changedContentsBelow(ReplicaReader& reader, NodeId node);
// Whether one of the nodes is that one or below it.
bool isAnyWithin(ReplicaReader& reader, NodeId node, const std::vector<NodeId>& nodes);
// The folder in which the host has the node, which is another one for what was moved or deleted
// here; kNoNode when there is none.
NodeId folderAtHost(ReplicaReader& reader, NodeId node);
// Makes the waiting change of the node, and those of the folders that it is in, due at `now`.
void hurry(ReplicaWriter& writer, NodeId node, WallTime now);

// The nodes that stay here, by number: the host hears neither of them nor of what is done to them.
std::vector<NodeId> localNodes(ReplicaReader& reader, std::int64_t limit);
// How many these are.
std::int64_t countLocal(ReplicaReader& reader);
// The paths, from the folder down, of what is in it and stays on this machine: some of them.
std::vector<std::string> localPaths(ReplicaReader& reader, NodeId folder, std::int64_t limit);

}  // namespace tulo::journal
