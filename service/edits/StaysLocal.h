// Whether an item stays on this machine: its name says so, or that of a folder above it that the
// host does not know either.
//
// Threads: inside the transaction or reading session that is given.
// Errors: DatabaseError.
#pragma once

#include <string_view>

#include "service/edits/LocalNames.h"
#include "service/replica/ReplicaReader.h"

namespace tulo {

// The item of that name in that folder.
bool staysLocal(ReplicaReader& reader, const LocalNames& names, NodeId folder,
                std::string_view name);
// The same when the folder's row has been read already.
bool staysLocal(ReplicaReader& reader, const LocalNames& names, const Node& folder,
                std::string_view name);

}  // namespace tulo
