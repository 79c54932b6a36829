// The columns of the node table as the replica's statements read them. Private to the replica.
#pragma once

#include <string>

#include "service/replica/Database.h"
#include "service/replica/Node.h"

namespace tulo::columns {

// Column of the name in what selectEntry reads.
inline constexpr int kEntryName = 8;

std::string selectEntry();
std::string selectNode();
Entry entryFrom(const Statement& row);
Node nodeFrom(const Statement& row);

}  // namespace tulo::columns
