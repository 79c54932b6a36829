// `tulo flush`, `retry` and `discard`: changes on their way to the host.
#pragma once

#include <CLI/CLI.hpp>

namespace tulo::cli {

// Adds the commands. `exitStatus` becomes 0 when all was done; for flush --wait 1 when something
// still waits, and 3 when only what needs the user is left.
void addChangesCommands(CLI::App& app, int& exitStatus);

}  // namespace tulo::cli
