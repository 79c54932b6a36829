#include "cli/StatusCommand.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <vector>

#include "cli/PlainText.h"
#include "cli/ServiceClient.h"
#include "cli/Sizes.h"
#include "service/base/ServicePaths.h"

namespace tulo::cli {

namespace {

using nlohmann::json;

constexpr const char* kHelp =
    R"(Tells of each mounted account what is fetched and sent, how full the cache is, and what went
wrong.

With a MOUNTPOINT, or any path below it, only of that account. The exit status is 1 when no service
runs.)";

constexpr std::chrono::seconds kRhythm{1};
constexpr std::size_t kShownWaiting = 10;

struct Arguments {
  std::string path;
  bool asJson = false;
  bool watch = false;
};

std::vector<json> statuses(const Arguments& arguments) {
  if (!arguments.path.empty()) return {askService(arguments.path, {{"op", "status"}})};
  std::vector<json> result;
  for (const std::string& domain : knownDomains()) {
    try {
      result.push_back(askDomain(domain, {{"op", "status"}}));
    } catch (const ServiceError&) {
      // Not running.
    }
  }
  return result;
}

void printTransfers(const json& transfers) {
  for (const json& transfer : transfers) {
    const bool active = transfer.value("active", false);
    std::printf("  %s  %s (%s)\n", active ? "fetching" : "waiting ",
                printable(transfer.at("path")).c_str(),
                sizeText(transfer.value("size", std::int64_t{0})).c_str());
  }
}

std::string hostText(const json& status) {
  const bool running = status.value("hostPresent", false);
  std::string text = running ? "running" : "not running";
  if (running && status.value("paused", false)) text += ", but nobody is signed in there";
  if (running && !status.value("hostReachable", true)) text += ", but it does not answer";
  if (!status.value("indexPresent", false)) text += "; it has no index of this account";
  const std::string failure = status.value("lastListingError", "");
  if (!failure.empty()) text += "; the last listing failed: " + printable(failure);
  return text;
}

std::string changesText(const json& status) {
  const auto waiting = status.value("pending", std::int64_t{0});
  const auto refused = status.value("needsAttention", std::int64_t{0});
  if (!status.value("readWrite", false)) {
    const std::string kept = "; " + counted(waiting + refused, "change") + " kept for later";
    return "none can be made: mounted read-only" + (waiting + refused > 0 ? kept : "");
  }
  std::string text = waiting > 0    ? counted(waiting, "change") + " to be sent"
                     : refused == 0 ? "all sent"
                                    : "";
  if (refused > 0) {
    text += (text.empty() ? "" : ", ") + counted(refused, "change") +
            (refused == 1 ? " needs you" : " need you");
  }
  const auto conflicts = status.value("conflicts", std::int64_t{0});
  if (conflicts > 0) text += ", " + counted(conflicts, "conflict");
  const auto local = status.value("localItems", std::int64_t{0});
  if (local > 0)
    text += "; " + counted(local, "item") + (local == 1 ? " stays" : " stay") + " here";
  return text;
}

std::string shortText(const json& change) {
  const std::string kind = change.value("kind", "");
  if (kind == "delete") return "to be deleted";
  if (kind == "name") return "renamed or moved";
  if (change.value("folder", false)) return "new folder";
  return (kind == "new" ? "new, " : "") + sizeText(change.value("size", std::int64_t{0}));
}

void printChange(const char* what, const json& change) {
  const std::string reason = reasonOf(change);
  std::printf("  %s  %s (%s)%s\n", what, printable(change.at("path")).c_str(),
              shortText(change).c_str(), reason.empty() ? "" : (": " + reason).c_str());
}

// What is sent, what waits, and what the user has to decide on.
void printChanges(const json& status) {
  for (const json& change : status.value("uploads", json::array()))
    printChange("sending ", change);
  std::size_t waiting = 0;
  for (const json& change : status.value("changes", json::array())) {
    const std::string state = change.value("state", "");
    if (state == "needs attention") {
      printChange("refused ", change);
      const std::string path = printable(status.at("mountPoint")) + '/' + printable(change["path"]);
      std::printf("            tulo retry %s\n            tulo discard %s\n",
                  shellWord(path).c_str(), shellWord(path).c_str());
    } else if (state != "local" && state != "sending" && ++waiting <= kShownWaiting) {
      printChange(state == "being written"  ? "open    "
                  : state == "trying again" ? "retrying"
                                            : "waiting ",
                  change);
    }
  }
  const auto all = status.value("pending", std::int64_t{0});
  const auto more = all - static_cast<std::int64_t>(kShownWaiting);
  if (waiting > kShownWaiting)
    std::printf("  waiting   and %lld more\n", static_cast<long long>(more));
}

bool isToldAsChange(const json& status, const std::string& path) {
  const json changes = status.value("changes", json::array());
  return std::any_of(changes.begin(), changes.end(),
                     [&](const json& change) { return change.value("path", "") == path; });
}

void printStatus(const json& status) {
  std::printf("%s\n", printable(status.at("mountPoint")).c_str());
  std::printf("  account   %s\n", printable(status.at("domain")).c_str());
  std::printf("  host      %s\n", hostText(status).c_str());
  std::printf("  changes   %s\n", changesText(status).c_str());
  printChanges(status);
  const json& cache = status.at("cache");
  std::printf("  cache     %s of %s\n", sizeText(cache.value("used", std::int64_t{0})).c_str(),
              sizeText(cache.value("limit", std::int64_t{0})).c_str());
  std::printf("  fetched   %s, failed %s, evicted %s\n", printable(status.at("fetched")).c_str(),
              printable(status.at("failedFetches")).c_str(),
              printable(status.at("evicted")).c_str());
  printTransfers(status.at("transfers"));
  for (const json& error : status.at("errors")) {
    if (isToldAsChange(status, error.value("path", ""))) continue;
    std::printf("  error     %s: %s\n", printable(error.at("path")).c_str(),
                printable(error.at("error")).c_str());
  }
}

int show(const Arguments& arguments) {
  const std::vector<json> found = statuses(arguments);
  for (json status : found) {
    status.erase("ok");
    if (arguments.asJson) {
      std::printf("%s\n", status.dump(-1, ' ', false, json::error_handler_t::replace).c_str());
    } else {
      printStatus(status);
    }
  }
  if (found.empty() && !arguments.asJson) std::fprintf(stderr, "tulo: no account is mounted\n");
  std::fflush(stdout);
  return found.empty() ? 1 : 0;
}

// Until it is interrupted, or nobody reads any more.
int watch(const Arguments& arguments) {
  const bool onTerminal = isatty(STDOUT_FILENO) != 0 && !arguments.asJson;
  while (std::ferror(stdout) == 0) {
    if (onTerminal) std::printf("\033[H\033[2J");
    show(arguments);
    std::this_thread::sleep_for(kRhythm);
  }
  return 0;
}

}  // namespace

void addStatusCommand(CLI::App& app, int& exitStatus) {
  auto arguments = std::make_shared<Arguments>();
  CLI::App* command = app.add_subcommand("status", kHelp);
  command->add_option("MOUNTPOINT", arguments->path, "Where an account is mounted")
      ->type_name("PATH");
  command->add_flag("--json", arguments->asJson, "One JSON object a line for each account");
  command->add_flag("--watch", arguments->watch, "Again each second, until interrupted");
  command->callback([arguments, &exitStatus] {
    exitStatus = arguments->watch ? watch(*arguments) : show(*arguments);
  });
}

}  // namespace tulo::cli
