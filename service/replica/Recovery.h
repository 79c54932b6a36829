// Where contents go whose place is gone: a folder in the root, which the host gets like any other.
//
// Errors: DatabaseError, ContentError.
#pragma once

#include <string>
#include <vector>

#include "service/replica/ContentStore.h"
#include "service/replica/Replica.h"

namespace tulo {

inline constexpr const char* kRecoveryFolder = "Recovered files";

// What was changed here below a node that is about to be removed, and not sent, moves to the
// recovery folder.
void rescueChanged(ReplicaWriter& writer, NodeId node);

// What stays on this machine below a node that goes, moves to the recovery folder as well; the host
// hears nothing of that. Returns what was where before, and where it is now.
struct Rescued {
  NodeId formerFolder = kNoNode;
  std::string formerName;
  NodeId folder = kNoNode;
  std::string name;
};
std::vector<Rescued> rescueLocal(ReplicaWriter& writer, NodeId node);

// After a damaged database was set aside: every file of contents that was not sent becomes a file
// in the recovery folder, under its name. Returns how many. What an earlier database gave numbers
// to is not given those numbers again.
std::size_t recoverContents(Replica& replica, ContentStore& store);

}  // namespace tulo
