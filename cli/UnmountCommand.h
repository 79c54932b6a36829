// `tulo unmount`.
#pragma once

#include <CLI/CLI.hpp>

namespace tulo::cli {

// Adds the command. `exitStatus` becomes 0 when nothing is mounted there any more.
void addUnmountCommand(CLI::App& app, int& exitStatus);

}  // namespace tulo::cli
