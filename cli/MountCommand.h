// `tulo mount`, `tulo unmount`: an account as an ordinary folder.
#pragma once

#include <CLI/CLI.hpp>

namespace tulo::cli {

// Adds the commands. `exitStatus` becomes 0 when the mount answers (or has ended, with
// --foreground), 1 when it could not be made.
void addMountCommand(CLI::App& app, int& exitStatus);

}  // namespace tulo::cli
