// The columns of the node table as the replica's statements read them. Private to the replica.
#pragma once

#include <string>

#include "service/replica/Node.h"
#include "sqlite/Connection.h"

namespace tulo::columns {

// Column of the name in what selectEntry reads.
inline constexpr int kEntryName = 8;

std::string selectEntry();
std::string selectNode();
Entry entryFrom(const sqlite::Statement& row);
Node nodeFrom(const sqlite::Statement& row);

}  // namespace tulo::columns
