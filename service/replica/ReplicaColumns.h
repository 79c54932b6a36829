// The columns of the node table as the replica's statements read them. Private to the replica.
#pragma once

#include <string>
#include <vector>

#include "service/replica/Node.h"
#include "sqlite/Connection.h"

namespace tulo::columns {

// Column of the name in what selectEntry reads.
inline constexpr int kEntryName = 8;

std::string selectEntry();
std::string selectNode();
Entry entryFrom(const sqlite::Statement& row);
Node nodeFrom(const sqlite::Statement& row);
// All that a bound statement gives, whose first column is a node's number.
std::vector<NodeId> idsFrom(sqlite::Statement& statement);

}  // namespace tulo::columns
