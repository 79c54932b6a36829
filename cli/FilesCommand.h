// What `tulo pin`, `unpin`, `download` and `evict` have in common: paths in, failures out.
#pragma once

#include <CLI/CLI.hpp>

#include "service/control/Requests.h"

namespace tulo::cli {

// Adds the command that has the operation done for all files that are named. `exitStatus` becomes 0
// when it was.
void addFilesCommand(CLI::App& app, control::Operation operation, const char* help,
                     int& exitStatus);

}  // namespace tulo::cli
