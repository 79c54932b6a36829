// `tulo evict`: gives back the room that downloads take up.
#pragma once

#include <CLI/CLI.hpp>

namespace tulo::cli {

// Adds the command. `exitStatus` becomes 0 when none of the files stayed.
void addEvictCommand(CLI::App& app, int& exitStatus);

}  // namespace tulo::cli
