#include "cli/StatusCommand.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <vector>

#include "cli/ServiceClient.h"
#include "cli/Sizes.h"
#include "service/Names.h"
#include "service/ServicePaths.h"

namespace tulo::cli {

namespace {

using nlohmann::json;

constexpr const char* kHelp =
    R"(Tells of each mounted account what is fetched, how full the cache is, and what went wrong.

With a MOUNTPOINT, or any path below it, only of that account. The exit status is 1 when no service
runs.)";

constexpr std::chrono::seconds kRhythm{1};

struct Arguments {
  std::string path;
  bool asJson = false;
  bool watch = false;
};

// Every account that ever had a service leaves a directory of this name.
std::vector<std::string> knownDomains() {
  const std::filesystem::path one = paths::stateDirectory("x");
  std::vector<std::string> domains;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(one.parent_path(), error)) {
    const std::string name = entry.path().filename();
    domains.push_back(names::filename(name).value_or(name));
  }
  std::sort(domains.begin(), domains.end());
  return domains;
}

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

// A line of text for the terminal, in which a file's name cannot do anything.
std::string printable(const json& value) {
  std::string text = value.is_string() ? value.get<std::string>() : value.dump();
  std::replace_if(
      text.begin(), text.end(),
      [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; }, '?');
  return text;
}

void printTransfers(const json& transfers) {
  for (const json& transfer : transfers) {
    const bool active = transfer.value("active", false);
    std::printf("  %s  %s (%s)\n", active ? "fetching" : "waiting ",
                printable(transfer.at("path")).c_str(),
                sizeText(transfer.value("size", std::int64_t{0})).c_str());
  }
}

void printStatus(const json& status) {
  std::printf("%s\n", printable(status.at("mountPoint")).c_str());
  std::printf("  account   %s\n", printable(status.at("domain")).c_str());
  const std::string failure = status.value("lastListingError", "");
  const bool present = status.value("indexPresent", false);
  std::printf("  host      %s%s\n", present ? "its index is there" : "no index",
              failure.empty() ? "" : (", the last listing failed: " + failure).c_str());
  const json& cache = status.at("cache");
  std::printf("  cache     %s of %s\n", sizeText(cache.value("used", std::int64_t{0})).c_str(),
              sizeText(cache.value("limit", std::int64_t{0})).c_str());
  std::printf("  fetched   %s, failed %s, evicted %s\n", printable(status.at("fetched")).c_str(),
              printable(status.at("failedFetches")).c_str(),
              printable(status.at("evicted")).c_str());
  printTransfers(status.at("transfers"));
  for (const json& error : status.at("errors")) {
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
