// The name in between of an item that makes room for another at the host.
//
// Threads: pure functions.
#pragma once

#include <string>

#include "service/replica/Node.h"

namespace tulo {

// One for each node, so that no two are in each other's way.
std::string asideName(const Node& node);
bool isAsideName(const std::string& name);
// Under which the replica remembers where an item of such a name was before.
std::string asideKey(const std::string& name);

}  // namespace tulo
