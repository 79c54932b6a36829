// `tulo download`: fetches files now.
#pragma once

#include <CLI/CLI.hpp>

namespace tulo::cli {

// Adds the command. `exitStatus` becomes 0 when all files are here.
void addDownloadCommand(CLI::App& app, int& exitStatus);

}  // namespace tulo::cli
