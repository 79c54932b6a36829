// `tulo demo`: the main job in one go, on a sample account that the command makes itself.
#pragma once

namespace CLI {
class App;
}

namespace tulo::cli {

// Adds the command. Its callback sets `exitStatus`, which must outlive the parsing.
void addDemoCommand(CLI::App& app, int& exitStatus);

}  // namespace tulo::cli
