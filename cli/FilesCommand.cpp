#include "cli/FilesCommand.h"

#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "cli/MountedPaths.h"
#include "cli/OverwrittenLine.h"
#include "cli/PlainText.h"
#include "cli/ServiceClient.h"
#include "service/control/Replies.h"

namespace tulo::cli {

namespace {

std::string textOf(const control::FilesProgress& progress) {
  constexpr std::size_t kWidth = 30;
  const auto [done, total] = progress;
  std::string bar(total > 0 ? done * kWidth / total : 0, '#');
  bar.resize(std::max(bar.size(), kWidth), ' ');
  return '[' + bar + "] " + std::to_string(done) + " of " + std::to_string(total) + " files";
}

int run(control::Operation operation, const std::vector<std::string>& paths) {
  bool good = true;
  for (const auto& [domain, named] : namedByDomain(paths, Deleted::isAnError)) {
    control::Outcome outcome;
    {
      OverwrittenLine line;
      const control::FilesRequest request{named.nodes.value_or(std::vector<NodeId>())};
      askDomain(domain, operation, request, [&line](const nlohmann::json& progress) {
        line.show(textOf(progress.get<control::FilesProgress>()));
      }).get_to(outcome);
    }
    printFailures(outcome);
    good = outcome.ok && good;
  }
  return good ? 0 : 1;
}

}  // namespace

void addFilesCommand(CLI::App& app, control::Operation operation, const char* help,
                     int& exitStatus) {
  auto paths = std::make_shared<std::vector<std::string>>();
  CLI::App* command = app.add_subcommand(control::textOf(operation), help);
  command->add_option("PATH", *paths, "Files and folders of mounted accounts")
      ->required()
      ->type_name("");
  command->callback([operation, paths, &exitStatus] { exitStatus = run(operation, *paths); });
}

}  // namespace tulo::cli
