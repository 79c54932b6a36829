#include "cli/PinCommand.h"

#include <unistd.h>

#include <array>
#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "cli/MountedPaths.h"
#include "cli/PlainText.h"
#include "cli/ServiceClient.h"

namespace tulo::cli {

namespace {

using nlohmann::json;

struct Operation {
  const char* name;
  const char* help;
};

constexpr std::array<Operation, 4> kOperations = {{
    {"pin",
     "Keeps files here: fetches them now and in every later version, and never evicts them.\n\n"
     "A pinned folder stands for all that is in it, now and later."},
    {"unpin", "Takes a pin away.\n\nWhat was fetched stays until the cache needs the room."},
    {"download", "Fetches files now; folders with all that is in them."},
    {"evict",
     "Frees the room that downloads take up; folders with all that is in them.\n\n"
     "What is open, pinned, or changed here and not sent yet stays."},
}};

// A line that is written over, on a terminal only.
class ProgressLine {
 public:
  ~ProgressLine() {
    if (shown_) std::fprintf(stderr, "\r\033[K");
  }

  void show(const json& progress) {
    if (isatty(STDERR_FILENO) == 0) return;
    constexpr int kWidth = 30;
    const auto done = progress.value("done", std::int64_t{0});
    const auto total = progress.value("total", std::int64_t{0});
    const auto filled = static_cast<int>(total > 0 ? done * kWidth / total : 0);
    std::fprintf(stderr, "\r[%-*s] %lld of %lld files\033[K", kWidth,
                 std::string(static_cast<std::size_t>(filled), '#').c_str(),
                 static_cast<long long>(done), static_cast<long long>(total));
    shown_ = true;
  }

 private:
  bool shown_ = false;
};

int run(const char* operation, const std::vector<std::string>& paths) {
  bool good = true;
  for (const auto& [domain, named] : namedByDomain(paths, Deleted::isAnError)) {
    json answer;
    {
      ProgressLine line;
      json request = named;
      request["op"] = operation;
      answer = askDomain(domain, request, [&line](const json& progress) { line.show(progress); });
    }
    printFailures(answer);
    good = answer.value("ok", false) && good;
  }
  return good ? 0 : 1;
}

}  // namespace

void addPinCommands(CLI::App& app, int& exitStatus) {
  for (const Operation& operation : kOperations) {
    auto paths = std::make_shared<std::vector<std::string>>();
    CLI::App* command = app.add_subcommand(operation.name, operation.help);
    command->add_option("PATH", *paths, "Files and folders of mounted accounts")
        ->required()
        ->type_name("");
    command->callback(
        [name = operation.name, paths, &exitStatus] { exitStatus = run(name, *paths); });
  }
}

}  // namespace tulo::cli
