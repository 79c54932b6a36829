#include <CLI/CLI.hpp>
#include <algorithm>
#include <csignal>
#include <cstdio>
#include <exception>
#include <memory>
#include <sstream>
#include <string>

#include "cli/DemoCommand.h"
#include "cli/DiscardCommand.h"
#include "cli/DownloadCommand.h"
#include "cli/EvictCommand.h"
#include "cli/FlushCommand.h"
#include "cli/HostCommand.h"
#include "cli/MountCommand.h"
#include "cli/PinCommand.h"
#include "cli/ProviderCommand.h"
#include "cli/RetryCommand.h"
#include "cli/StatusCommand.h"
#include "cli/UnmountCommand.h"
#include "platform/Deployment.h"

namespace {

constexpr int wrongUsage = 2;

// Lists commands by the first sentence of what they say of themselves.
class Formatter : public CLI::Formatter {
 public:
  std::string make_subcommand(const CLI::App* command) const override {
    std::string text = command->get_description();
    std::replace(text.begin(), text.end(), '\n', ' ');
    if (const std::size_t end = text.find(". "); end != std::string::npos) text.resize(end + 1);
    std::stringstream line;
    CLI::detail::format_help(line, command->get_name(), text, column_width_);
    return line.str();
  }
};

int run(int argc, char** argv) {
  CLI::App app{"Cloud files as an ordinary folder, through a file-provider extension."};
  app.name("tulo");
  app.formatter(std::make_shared<Formatter>());
  app.set_version_flag("--version", "tulo " + std::string(tulo::deployment::version));
  app.require_subcommand(1, 1);
  int exitStatus = 0;
  // In the order of the help: what everybody needs first.
  tulo::cli::addMountCommand(app, exitStatus);
  tulo::cli::addUnmountCommand(app, exitStatus);
  tulo::cli::addStatusCommand(app, exitStatus);
  tulo::cli::addFlushCommand(app, exitStatus);
  tulo::cli::addRetryCommand(app, exitStatus);
  tulo::cli::addDiscardCommand(app, exitStatus);
  tulo::cli::addPinCommands(app, exitStatus);
  tulo::cli::addDownloadCommand(app, exitStatus);
  tulo::cli::addEvictCommand(app, exitStatus);
  tulo::cli::addHostCommand(app, exitStatus);
  tulo::cli::addProviderCommand(app, exitStatus);
  tulo::cli::addDemoCommand(app, exitStatus);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    // CLI11 has many codes of its own; only help and version are no error.
    return app.exit(error) == 0 ? 0 : wrongUsage;
  }
  return exitStatus;
}

}  // namespace

int main(int argc, char** argv) {
  // A write to a peer that has gone comes back as an error instead.
  std::signal(SIGPIPE, SIG_IGN);
  try {
    return run(argc, argv);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "tulo: %s\n", error.what());
    return 1;
  }
}
