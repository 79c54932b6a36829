#include "cli/DemoCommand.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <memory>
#include <string>

#include "cli/demo/Interruption.h"
#include "cli/demo/Terminal.h"
#include "cli/demo/Walk.h"
#include "platform/Deployment.h"
#include "platform/linux/LogSink.h"

namespace tulo::cli {
namespace {

const char* const demoHelp = R"(The main job in one go.

Makes a sample account in a temporary folder, starts the reference host on it as a process of its
own, and walks the account through the extension: lists it, downloads, creates, renames, moves,
edits, locks, deletes, draws thumbnails; mounts it as a folder and works in that, also while the host
is away; and shows what every call answers once the host is gone.
Each step is checked; the first that does not do what it says ends the demo with status 1.
Everything that it made is removed at its end, also on Ctrl-C.)";

constexpr int defaultArchive = 3000;
constexpr int greatestArchive = 1'000'000;
constexpr int endedBySignal = 128;

struct Arguments {
  bool keep = false;
  bool showLog = false;
  int archived = defaultArchive;
};

int walk(const Arguments& arguments, demo::Interruption& interruption) {
  demo::Terminal terminal;
  terminal.line("TuloFileProvider " + std::string(deployment::version) +
                ": an account as the system sees it");
  demo::Walk walk(terminal, interruption, arguments.archived);
  walk.run();
  terminal.line();
  terminal.line("Every step did what it says.");
  if (!arguments.keep) return 0;
  try {
    walk.keep();
  } catch (const demo::Interrupted&) {
    terminal.line();
    return 0;
  }
}

int run(const Arguments& arguments) {
  demo::Interruption interruption;
  if (!arguments.showLog) platform::setLogSink([](const platform::LogRecord&) {});
  try {
    return walk(arguments, interruption);
  } catch (const std::exception& error) {
    // Whatever failed after a signal failed because the host was told to end.
    if (interruption.received() != 0) return endedBySignal + interruption.received();
    std::fprintf(stderr, "tulo demo: %s\n", error.what());
    return 1;
  }
}

}  // namespace

void addDemoCommand(CLI::App& app, int& exitStatus) {
  CLI::App* command = app.add_subcommand("demo", demoHelp);
  const auto arguments = std::make_shared<Arguments>();
  command->add_flag("--keep", arguments->keep,
                    "Serve the account on after the walk, and say what to try, until Ctrl-C");
  command
      ->add_option("--files", arguments->archived, "How many small files the sample's archive has")
      ->check(CLI::Range(0, greatestArchive))
      ->capture_default_str();
  command->add_flag("--log", arguments->showLog, "Show the extension's log on standard error");
  command->callback([arguments, &exitStatus] { exitStatus = run(*arguments); });
}

}  // namespace tulo::cli
