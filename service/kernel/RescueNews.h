// What the kernel is to be told when something was moved to the recovered files.
//
// Threads: a pure function.
#pragma once

#include <vector>

#include "service/kernel/Notifier.h"
#include "service/replica/Recovery.h"

namespace tulo {

Invalidations newsOf(const std::vector<Rescued>& rescued);

}  // namespace tulo
