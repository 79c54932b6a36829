// `tulo host`: the reference host application.
#pragma once

#include <CLI/CLI.hpp>

namespace tulo::cli {

// Adds the group to the application. When one of its commands has run, `exitStatus` is 0 if it did
// what it was asked to do and 1 if not, with a message on standard error.
void addHostCommand(CLI::App& app, int& exitStatus);

}  // namespace tulo::cli
