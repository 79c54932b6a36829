// `tulo pin` and `unpin`: which files are kept here.
#pragma once

#include <CLI/CLI.hpp>

namespace tulo::cli {

// Adds the commands. `exitStatus` becomes 0 when it was done for all files.
void addPinCommands(CLI::App& app, int& exitStatus);

}  // namespace tulo::cli
