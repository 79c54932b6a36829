// What is remembered of the listings of folders.
//
// Threads: the functions run inside the transaction that they are given.
// Errors: DatabaseError.
#pragma once

#include <string>

#include "service/replica/ReplicaWriter.h"

namespace tulo::listings {

// What is known of the folder is not what its last listing said any more. So the next one is looked
// at, even if it says the same as that: what came in between may be gone again.
void forget(ReplicaWriter& writer, NodeId folder);
void forget(ReplicaWriter& writer, const std::string& identifier);

}  // namespace tulo::listings
