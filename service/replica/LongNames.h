// Files that only this machine has, under a name longer than any folder can hold.
//
// Conflicted copies were once named without regard to that. The host takes none of them, and
// programs can neither open nor rename nor remove what they cannot name.
//
// Threads: at the start, before anything else uses the replica.
// Errors: DatabaseError.
#pragma once

#include <cstddef>

#include "service/replica/ContentStore.h"
#include "service/replica/Replica.h"

namespace tulo {

// Cuts such names, as those of new copies are cut, and has the files go up again. Returns how many
// there were.
std::size_t cutLongNames(Replica& replica, const ContentStore& store);

}  // namespace tulo
