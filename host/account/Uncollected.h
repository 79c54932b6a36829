// Removal of what nobody has come for.
//
// Threads: any thread. Errors: OperationError where the folder cannot be read.
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "host/base/HostLog.h"

namespace tulo::host {

// Removes the entries of a folder that have not changed for `age` and that `isInUse` does not
// claim; returns their names. The age counts from when the entry itself came to be or was last
// changed, whatever modification time its contents carry. What cannot be removed is logged and
// left.
std::vector<std::string> removeUncollected(int folder, std::chrono::seconds age,
                                           std::chrono::system_clock::time_point now,
                                           const std::function<bool(const std::string&)>& isInUse,
                                           const HostLog& log);

}  // namespace tulo::host
