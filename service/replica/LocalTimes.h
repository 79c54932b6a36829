// Files whose time was set here: it stays until the host has other contents.
//
// Threads: the functions run inside the transaction or reading session that they are given.
// Errors: DatabaseError.
#pragma once

#include "service/replica/ReplicaWriter.h"

namespace tulo::localTimes {

void note(ReplicaWriter& writer, NodeId node);
bool isNoted(ReplicaReader& reader, NodeId node);
void forget(ReplicaWriter& writer, NodeId node);

}  // namespace tulo::localTimes
