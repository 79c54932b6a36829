#include "cli/ChangesCommand.h"

#include <unistd.h>

#include <cstdio>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "cli/MountedPaths.h"
#include "cli/PlainText.h"
#include "cli/ServiceClient.h"
#include "cli/Sizes.h"
#include "service/base/ServicePaths.h"

namespace tulo::cli {

namespace {

using nlohmann::json;

constexpr const char* kFlushHelp =
    R"(Sends the changes that wait at once, without the usual quiet time.

PATH is a mount point or anything in a mount: of a folder, all that is in it. What a program has
open for writing goes up when it is closed. The exit status is 0; with --wait it is 1 when something
still waits and 3 when nothing waits but something needs attention (see `tulo status`).)";

constexpr const char* kRetryHelp =
    R"(Tries refused changes again, and those that wait for their next attempt.

Without a PATH, all of every mounted account. The path of something that was deleted stands for its
deletion.)";

constexpr const char* kDiscardHelp =
    R"(Gives up changes that the host has not got, and shows the host's state again.

Of a folder, the changes of all that is in it. What exists only here is lost, so the command says
what that is and asks first. The path of something that was deleted brings it back.)";

constexpr int kStillWaiting = 1;
constexpr int kNeedsAttention = 3;
constexpr std::size_t kShown = 10;
constexpr std::size_t kNamed = 3;

struct FlushArguments {
  std::string path;
  bool wait = false;
  double timeout = 0;
};

std::string why(const json& state) {
  if (!state.value("hostPresent", true)) return "; the host is not running";
  if (state.value("paused", false)) return "; the host says that nobody is signed in";
  if (!state.value("hostReachable", true)) return "; the host cannot be reached";
  return {};
}

// How much is left, on a terminal only.
class LeftLine {
 public:
  ~LeftLine() {
    if (shown_) std::fprintf(stderr, "\r\033[K");
  }

  void show(const json& progress) {
    if (isatty(STDERR_FILENO) == 0) return;
    std::fprintf(stderr, "\r%s left%s\033[K",
                 counted(progress.value("left", std::int64_t{0}), "change").c_str(),
                 why(progress).c_str());
    shown_ = true;
  }

 private:
  bool shown_ = false;
};

// What is left, of each change a line; `refused`: only what needs attention.
void printLeft(const json& changes, bool refused) {
  std::size_t shown = 0;
  for (const json& change : changes) {
    const std::string state = change.value("state", "");
    if (state == "local" || (refused && state != "needs attention")) continue;
    if (++shown > kShown) {
      std::fprintf(stderr, "  ...\n");
      return;
    }
    const std::string reason = reasonOf(change);
    std::fprintf(stderr, "  %s: %s%s\n", printable(change.at("path")).c_str(), state.c_str(),
                 reason.empty() ? "" : (": " + reason).c_str());
  }
}

int toldFlush(const json& answer, bool waited) {
  const auto waiting = answer.value("pending", std::int64_t{0});
  const auto refused = answer.value("needsAttention", std::int64_t{0});
  printFailures(answer);
  if (waiting > 0 && !waited) {
    std::printf("%s on the way%s\n", counted(waiting, "change").c_str(), why(answer).c_str());
  } else if (waiting > 0) {
    std::fprintf(stderr, "tulo: %s left%s\n", counted(waiting, "change").c_str(),
                 why(answer).c_str());
  }
  if (refused > 0) {
    std::fprintf(stderr, "tulo: %s %s attention: see `tulo retry` and `tulo discard`\n",
                 counted(refused, "change").c_str(), refused == 1 ? "needs" : "need");
  }
  if (waiting == 0 && refused == 0 && answer.value("ok", false)) {
    std::printf("everything is at the host\n");
  } else if (waited || refused > 0) {
    printLeft(answer.at("changes"), !waited);
  }
  if (!answer.value("ok", false)) return 1;
  if (!waited) return 0;
  return waiting > 0 ? kStillWaiting : refused > 0 ? kNeedsAttention : 0;
}

int flush(const FlushArguments& arguments) {
  const auto named = namedByDomain({arguments.path}, Deleted::isMeant);
  const auto& [domain, part] = *named.begin();
  json request = part;
  request["op"] = "flush";
  request["wait"] = arguments.wait;
  request["timeout"] = static_cast<std::int64_t>(arguments.timeout * 1000);
  json answer;
  {
    LeftLine line;
    answer = askDomain(domain, request, [&line](const json& progress) { line.show(progress); });
  }
  return toldFlush(answer, arguments.wait);
}

int toldRetry(const json& answer) {
  printFailures(answer);
  const auto count = answer.value("retried", std::int64_t{0});
  const bool good = answer.value("ok", false);
  if (count > 0) std::printf("trying %s again\n", counted(count, "change").c_str());
  if (count == 0 && good) std::printf("nothing to try again\n");
  return good ? 0 : 1;
}

int retryEverything() {
  int status = 0;
  bool any = false;
  for (const std::string& domain : knownDomains()) {
    json answer;
    try {
      answer = askDomain(domain, {{"op", "retry"}});
    } catch (const ServiceError&) {
      continue;  // Not running.
    }
    any = true;
    if (toldRetry(answer) != 0) status = 1;
  }
  if (!any) throw ServiceError("no account is mounted");
  return status;
}

int retry(const std::vector<std::string>& paths) {
  if (paths.empty()) return retryEverything();
  int status = 0;
  for (const auto& [domain, named] : namedByDomain(paths, Deleted::isMeant)) {
    json request = named;
    request["op"] = "retry";
    if (toldRetry(askDomain(domain, request)) != 0) status = 1;
  }
  return status;
}

// A new folder goes only with all that is in it.
std::string whatKeeps(const json& change) {
  const auto names = change.value("keeps", std::vector<std::string>());
  if (names.empty()) return "will be gone";
  std::string list;
  for (std::size_t i = 0; i < names.size() && i < kNamed; ++i)
    list += (i == 0 ? "" : ", ") + printable(names[i]);
  if (names.size() > kNamed) list += ", ...";
  return "cannot go: it holds " + list + ", which only this machine has; move or delete that first";
}

// What becomes of one change that is given up.
std::string loss(const json& change) {
  const std::string kind = change.value("kind", "");
  const bool folder = change.value("folder", false);
  const std::string size = sizeText(change.value("size", std::int64_t{0}));
  if (kind == "delete") return "deleted here; comes back";
  if (kind == "new" && folder) return "a new folder; " + whatKeeps(change);
  if (kind == "new") return "a new file that is only here (" + size + "); will be LOST";
  const std::string moved =
      change.contains("from") ? "; goes back to " + printable(change["from"]) : "";
  if (kind == "contents") return "changed here (" + size + "); these contents will be LOST" + moved;
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

int discard(const std::vector<std::string>& paths, bool yes) {
  auto named = namedByDomain(paths, Deleted::isMeant);
  std::size_t count = 0;
  for (auto& [domain, request] : named) {
    request["op"] = "changes";
    const json answer = askDomain(domain, request);
    printFailures(answer);
    if (!answer.value("ok", false)) return 1;
    for (const json& change : answer.at("changes")) {
      std::printf("%s: %s\n", printable(change.at("path")).c_str(), loss(change).c_str());
      ++count;
    }
  }
  if (count == 0) {
    std::printf("nothing to discard\n");
    return 0;
  }
  if (!yes && !confirmed(count)) return 1;
  int status = 0;
  for (auto& [domain, request] : named) {
    request["op"] = "discard";
    const json answer = askDomain(domain, request);
    printFailures(answer);
    if (!answer.value("ok", false)) status = 1;
  }
  return status;
}

void addFlush(CLI::App& app, int& exitStatus) {
  auto arguments = std::make_shared<FlushArguments>();
  CLI::App* command = app.add_subcommand("flush", kFlushHelp);
  command->add_option("PATH", arguments->path, "A mount point, or a file or folder in a mount")
      ->required()
      ->type_name("");
  CLI::Option* wait =
      command->add_flag("--wait", arguments->wait, "Return when nothing waits any more");
  command
      ->add_option("--timeout", arguments->timeout,
                   "The most seconds that --wait waits; default: as long as it takes")
      ->check(checkSeconds)
      ->needs(wait)
      ->type_name("SECONDS");
  command->callback([arguments, &exitStatus] { exitStatus = flush(*arguments); });
}

void addRetry(CLI::App& app, int& exitStatus) {
  auto paths = std::make_shared<std::vector<std::string>>();
  CLI::App* command = app.add_subcommand("retry", kRetryHelp);
  command->add_option("PATH", *paths, "Files and folders of mounted accounts")->type_name("");
  command->callback([paths, &exitStatus] { exitStatus = retry(*paths); });
}

void addDiscard(CLI::App& app, int& exitStatus) {
  auto paths = std::make_shared<std::vector<std::string>>();
  auto yes = std::make_shared<bool>(false);
  CLI::App* command = app.add_subcommand("discard", kDiscardHelp);
  command->add_option("PATH", *paths, "Files and folders of mounted accounts")
      ->required()
      ->type_name("");
  command->add_flag("--yes,-y", *yes, "Do not ask");
  command->callback([paths, yes, &exitStatus] { exitStatus = discard(*paths, *yes); });
}

}  // namespace

void addChangesCommands(CLI::App& app, int& exitStatus) {
  addFlush(app, exitStatus);
  addRetry(app, exitStatus);
  addDiscard(app, exitStatus);
}

}  // namespace tulo::cli
