#include "cli/StatusCommand.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <vector>

#include "cli/PlainText.h"
#include "cli/ServiceClient.h"
#include "cli/Sizes.h"
#include "service/base/ServicePaths.h"
#include "service/control/StatusReply.h"

namespace tulo::cli {

namespace {

using control::ChangeKind;
using control::ChangeState;
using control::HostState;
using control::PendingChange;
using control::StatusReply;
using control::Transfer;
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

// As they came: what a service of another version tells is passed on with --json.
std::vector<json> statuses(const Arguments& arguments) {
  if (!arguments.path.empty()) {
    return {askDomain(domainOfPath(arguments.path), control::Operation::status)};
  }
  std::vector<json> result;
  for (const std::string& domain : knownDomains()) {
    try {
      result.push_back(askDomain(domain, control::Operation::status));
    } catch (const ServiceError&) {
      // Not running.
    }
  }
  return result;
}

void printTransfers(const std::vector<Transfer>& transfers) {
  for (const Transfer& transfer : transfers) {
    std::printf("  %s  %s (%s)\n", transfer.active ? "fetching" : "waiting ",
                printable(transfer.path).c_str(), sizeText(transfer.size).c_str());
  }
}

std::string hostText(const StatusReply& status) {
  const HostState& host = status.uploads.host;
  std::string text = host.present ? "running" : "not running";
  if (host.present && host.paused) text += ", but nobody is signed in there";
  if (host.present && !host.reachable) text += ", but it does not answer";
  if (!status.listing.indexPresent) text += "; it has no index of this account";
  const std::string& failure = status.listing.lastError;
  if (!failure.empty()) text += "; the last listing failed: " + printable(failure);
  return text;
}

std::string changesText(const StatusReply& status) {
  const auto [waiting, refused] = status.uploads.counts;
  if (!status.readWrite) {
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
  const auto conflicts = static_cast<std::int64_t>(status.uploads.conflicts);
  if (conflicts > 0) text += ", " + counted(conflicts, "conflict");
  const std::int64_t local = status.uploads.localItems;
  if (local > 0)
    text += "; " + counted(local, "item") + (local == 1 ? " stays" : " stay") + " here";
  return text;
}

std::string shortText(const PendingChange& change) {
  if (change.kind == ChangeKind::deleted) return "to be deleted";
  if (change.kind == ChangeKind::place) return "renamed or moved";
  if (change.folder) return "new folder";
  return (change.kind == ChangeKind::added ? "new, " : "") + sizeText(change.size.value_or(0));
}

void printChange(const char* what, const PendingChange& change) {
  const std::string reason = reasonOf(change);
  std::printf("  %s  %s (%s)%s\n", what, printable(change.path).c_str(), shortText(change).c_str(),
              reason.empty() ? "" : (": " + reason).c_str());
}

void printRefused(const std::string& mountPoint, const PendingChange& change) {
  printChange("refused ", change);
  const std::string path = shellWord(printable(mountPoint) + '/' + printable(change.path));
  std::printf("            tulo retry %s\n            tulo discard %s\n", path.c_str(),
              path.c_str());
}

const char* wordFor(ChangeState state) {
  if (state == ChangeState::beingWritten) return "open    ";
  return state == ChangeState::tryingAgain ? "retrying" : "waiting ";
}

// What is sent, what waits, and what the user has to decide on.
void printChanges(const StatusReply& status) {
  for (const PendingChange& change : status.uploads.uploads)
    printChange("sending ", change);
  std::size_t waiting = 0;
  for (const PendingChange& change : status.uploads.changes) {
    if (change.state == ChangeState::needsAttention) {
      printRefused(status.mountPoint, change);
    } else if (change.state != ChangeState::local && change.state != ChangeState::sending &&
               ++waiting <= kShownWaiting) {
      printChange(wordFor(change.state), change);
    }
  }
  const auto more = status.uploads.counts.pending - static_cast<std::int64_t>(kShownWaiting);
  if (waiting > kShownWaiting)
    std::printf("  waiting   and %lld more\n", static_cast<long long>(more));
}

void printErrors(const StatusReply& status) {
  const std::vector<PendingChange>& changes = status.uploads.changes;
  for (const control::Failure& error : status.errors) {
    const std::string path = nameOf(error);
    const bool told = std::any_of(changes.begin(), changes.end(),
                                  [&](const auto& change) { return change.path == path; });
    if (told) continue;
    std::printf("  error     %s: %s\n", printable(path).c_str(), printable(error.error).c_str());
  }
}

void printKept(const StatusReply& status) {
  for (const control::KeptAccount& kept : status.kept) {
    std::printf("  kept      %s of another account, from %s\n",
                counted(kept.changes, "change").c_str(), printable(kept.container).c_str());
    std::printf("            sent after the next mount with --container %s\n",
                shellWord(printable(kept.container)).c_str());
    std::printf("            changed files are also in %s\n", printable(kept.files).c_str());
  }
}

void printStatus(const StatusReply& status) {
  std::printf("%s\n", printable(status.mountPoint).c_str());
  std::printf("  account   %s\n", printable(status.domain).c_str());
  std::printf("  host      %s\n", hostText(status).c_str());
  std::printf("  changes   %s\n", changesText(status).c_str());
  printChanges(status);
  std::printf("  cache     %s of %s\n", sizeText(status.cache.used).c_str(),
              sizeText(status.cache.limit).c_str());
  const control::DownloadStatus& downloads = status.downloads;
  std::printf("  fetched   %s, failed %s, evicted %s\n", std::to_string(downloads.fetched).c_str(),
              std::to_string(downloads.failed).c_str(), std::to_string(downloads.evicted).c_str());
  printTransfers(downloads.transfers);
  printErrors(status);
  printKept(status);
}

StatusReply answered(const json& status) {
  auto reply = status.get<StatusReply>();
  if (reply.outcome.error) throw ServiceError(*reply.outcome.error);
  return reply;
}

int show(const Arguments& arguments) {
  const std::vector<json> found = statuses(arguments);
  for (json status : found) {
    status.erase("ok");
    if (arguments.asJson) {
      std::printf("%s\n", status.dump(-1, ' ', false, json::error_handler_t::replace).c_str());
    } else {
      printStatus(answered(status));
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
