// `tulo status`.
#pragma once

#include <CLI/CLI.hpp>

namespace tulo::cli {

// Adds the command. `exitStatus` becomes 0 when at least one service answered.
void addStatusCommand(CLI::App& app, int& exitStatus);

}  // namespace tulo::cli
