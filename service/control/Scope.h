// Which changes a request is about.
//
// Threads: any thread.
// Errors: sqlite::DatabaseError.
#pragma once

#include <vector>

#include "service/control/ControlParts.h"
#include "service/control/Replies.h"
#include "service/control/Requests.h"

namespace tulo::control {

struct Scope {
  std::vector<NodeId> nodes;
  // The nodes do not matter: nothing was named, or the root was.
  bool everything = false;
  Failures unknown;  // names that stand for nothing
};

Scope scopeOf(const ControlParts& parts, const ChangesRequest& request);

// Those that have a change, each once; what is deepest comes first.
std::vector<NodeId> changedIn(const ControlParts& parts, const Scope& scope);

}  // namespace tulo::control
