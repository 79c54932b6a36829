// `tulo flush`: sends what waits at once.
#pragma once

#include <CLI/CLI.hpp>

namespace tulo::cli {

// Adds the command. `exitStatus` becomes 0 when all was done; with --wait 1 when something still
// waits, and 3 when only what needs the user is left.
void addFlushCommand(CLI::App& app, int& exitStatus);

}  // namespace tulo::cli
