// `tulo provider`: one protocol call of the extension at a time, as JSON.
#pragma once

#include <CLI/CLI.hpp>

namespace tulo::cli {

// Adds the group to the application. When one of its commands has run, `exitStatus` is 0 if the
// call succeeded and 1 if it reported an error to its caller.
void addProviderCommand(CLI::App& app, int& exitStatus);

}  // namespace tulo::cli
