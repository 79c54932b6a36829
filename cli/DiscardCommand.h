// `tulo discard`: gives up changes that the host has not got.
#pragma once

#include <CLI/CLI.hpp>

namespace tulo::cli {

// Adds the command. `exitStatus` becomes 0 when all of them are given up, or there were none.
void addDiscardCommand(CLI::App& app, int& exitStatus);

}  // namespace tulo::cli
