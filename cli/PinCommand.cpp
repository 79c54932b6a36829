#include "cli/PinCommand.h"

#include "cli/FilesCommand.h"

namespace tulo::cli {

namespace {

constexpr const char* kPinHelp =
    R"(Keeps files here: fetches them now and in every later version, and never evicts them.

A pinned folder stands for all that is in it, now and later.)";

constexpr const char* kUnpinHelp =
    R"(Takes a pin away.

What was fetched stays until the cache needs the room.)";

}  // namespace

void addPinCommands(CLI::App& app, int& exitStatus) {
  addFilesCommand(app, control::Operation::pin, kPinHelp, exitStatus);
  addFilesCommand(app, control::Operation::unpin, kUnpinHelp, exitStatus);
}

}  // namespace tulo::cli
