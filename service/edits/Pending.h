// What waits to go up, as the user is told of it: by path, and with what would be lost.
//
// Threads: pure functions of the reading session they are given.
// Errors: DatabaseError.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "service/replica/Change.h"
#include "service/replica/ReplicaReader.h"

namespace tulo::pending {

struct Item {
  Change change;
  std::string path;    // from the root; of what is deleted, where it was
  std::string former;  // where the host has it; empty when it does not, or at the same place
  NodeKind kind = NodeKind::file;
  std::int64_t size = 0;
  bool isNew = false;  // the host has no such item
};

// What a change is of: "delete", "new", "contents" or "name".
const char* kindOf(const Change& change);

// The path from the root, without a slash at its begin.
std::string pathOf(ReplicaReader& reader, NodeId node);

Item describe(ReplicaReader& reader, const Change& change);

// The item deleted here that had the name in the folder; kNoNode when there is none.
NodeId deletedFrom(ReplicaReader& reader, NodeId folder, std::string_view name);

}  // namespace tulo::pending
