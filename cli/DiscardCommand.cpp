#include "cli/DiscardCommand.h"

#include <unistd.h>

#include <cstdio>
#include <iostream>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "cli/MountedPaths.h"
#include "cli/PlainText.h"
#include "cli/ServiceClient.h"
#include "cli/Sizes.h"
#include "service/base/ServicePaths.h"
#include "service/control/Replies.h"

namespace tulo::cli {

namespace {

using control::ChangeKind;
using control::Operation;
using control::PendingChange;
using Named = std::map<std::string, control::ChangesRequest>;

constexpr const char* kHelp =
    R"(Gives up changes that the host has not got, and shows the host's state again.

Of a folder, the changes of all that is in it. What exists only here is lost, so the command says
what that is and asks first. The path of something that was deleted brings it back.)";

constexpr std::size_t kNamed = 3;

// A new folder goes only with all that is in it.
std::string whatKeeps(const PendingChange& change) {
  const std::vector<std::string>& names = change.keeps;
  if (names.empty()) return "will be gone";
  std::string list;
  for (std::size_t i = 0; i < names.size() && i < kNamed; ++i)
    list += (i == 0 ? "" : ", ") + printable(names[i]);
  if (names.size() > kNamed) list += ", ...";
  return "cannot go: it holds " + list + ", which only this machine has; move or delete that first";
}

// What becomes of one change that is given up.
std::string loss(const PendingChange& change) {
  const std::string size = sizeText(change.size.value_or(0));
  const std::string moved = change.from ? "; goes back to " + printable(*change.from) : "";
  switch (change.kind) {
    case ChangeKind::deleted:
      return "deleted here; comes back";
    case ChangeKind::added:
      if (change.folder) return "a new folder; " + whatKeeps(change);
      return "a new file that is only here (" + size + "); will be LOST";
    case ChangeKind::contents:
      return "changed here (" + size + "); these contents will be LOST" + moved;
    case ChangeKind::place:
      break;
  }
  return "renamed or moved here" + moved;
}

bool confirmed(std::size_t count) {
  if (isatty(STDIN_FILENO) == 0) {
    throw ServiceError("not discarded: there is no terminal to ask on; give --yes to agree");
  }
  std::printf("Discard %s? [y/N] ", counted(static_cast<std::int64_t>(count), "change").c_str());
  std::fflush(stdout);
  std::string line;
  std::getline(std::cin, line);
  return line == "y" || line == "Y" || line == "yes";
}

// Says what would be lost; returns how many changes that are, or nothing when a name is wrong.
std::optional<std::size_t> explain(const Named& named) {
  std::size_t count = 0;
  for (const auto& [domain, about] : named) {
    const auto reply = askDomain(domain, Operation::changes, about).get<control::ChangesReply>();
    printFailures(reply.outcome);
    if (!reply.outcome.ok) return std::nullopt;
    for (const PendingChange& change : reply.changes) {
      std::printf("%s: %s\n", printable(change.path).c_str(), loss(change).c_str());
      ++count;
    }
  }
  return count;
}

int discard(const std::vector<std::string>& paths, bool yes) {
  const Named named = namedByDomain(paths, Deleted::isMeant);
  const std::optional<std::size_t> count = explain(named);
  if (!count) return 1;
  if (*count == 0) {
    std::printf("nothing to discard\n");
    return 0;
  }
  if (!yes && !confirmed(*count)) return 1;
  int status = 0;
  for (const auto& [domain, about] : named) {
    const auto reply = askDomain(domain, Operation::discard, about).get<control::DiscardReply>();
    printFailures(reply.outcome);
    if (!reply.outcome.ok) status = 1;
  }
  return status;
}

}  // namespace

void addDiscardCommand(CLI::App& app, int& exitStatus) {
  auto paths = std::make_shared<std::vector<std::string>>();
  auto yes = std::make_shared<bool>(false);
  CLI::App* command = app.add_subcommand("discard", kHelp);
  command->add_option("PATH", *paths, "Files and folders of mounted accounts")
      ->required()
      ->type_name("");
  command->add_flag("--yes,-y", *yes, "Do not ask");
  command->callback([paths, yes, &exitStatus] { exitStatus = discard(*paths, *yes); });
}

}  // namespace tulo::cli
