// `tulo pin`, `unpin`, `download` and `evict`: where the contents of files are kept.
#pragma once

#include <CLI/CLI.hpp>

namespace tulo::cli {

// Adds the commands. `exitStatus` becomes 0 when each was done for all files.
void addPinCommands(CLI::App& app, int& exitStatus);

}  // namespace tulo::cli
