// The name of the copy that is made here when both sides changed a file.
//
// Threads: a pure function.
#pragma once

#include <string>

#include "service/base/Time.h"

namespace tulo {

// "name (conflicted copy of MACHINE, DATE).ext"; `attempt` counts up when that is taken.
std::string conflictedName(const std::string& name, const std::string& machine, WallSeconds when,
                           unsigned attempt);

}  // namespace tulo
