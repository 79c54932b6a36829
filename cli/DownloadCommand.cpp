#include "cli/DownloadCommand.h"

#include "cli/FilesCommand.h"

namespace tulo::cli {

namespace {

constexpr const char* kHelp = "Fetches files now; folders with all that is in them.";

}  // namespace

void addDownloadCommand(CLI::App& app, int& exitStatus) {
  addFilesCommand(app, control::Operation::download, kHelp, exitStatus);
}

}  // namespace tulo::cli
