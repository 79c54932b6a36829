#include "cli/EvictCommand.h"

#include "cli/FilesCommand.h"

namespace tulo::cli {

namespace {

constexpr const char* kHelp =
    R"(Frees the room that downloads take up; folders with all that is in them.

What is open, pinned, or changed here and not sent yet stays.)";

}  // namespace

void addEvictCommand(CLI::App& app, int& exitStatus) {
  addFilesCommand(app, control::Operation::evict, kHelp, exitStatus);
}

}  // namespace tulo::cli
