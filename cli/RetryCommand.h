// `tulo retry`: tries again what the host refused.
#pragma once

#include <CLI/CLI.hpp>

namespace tulo::cli {

// Adds the command. `exitStatus` becomes 0 when all that was named is tried again.
void addRetryCommand(CLI::App& app, int& exitStatus);

}  // namespace tulo::cli
