// Where symbolic links lead.
//
// Threads: the functions run inside the transaction or reading session that they are given.
// Errors: DatabaseError.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "service/replica/ReplicaWriter.h"

namespace tulo::links {

void add(ReplicaWriter& writer, NodeId link, std::string_view target);
// Nothing of what is no link.
std::optional<std::string> target(ReplicaReader& reader, NodeId link);

}  // namespace tulo::links
