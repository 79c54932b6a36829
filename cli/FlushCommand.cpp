#include "cli/FlushCommand.h"

#include <chrono>
#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "cli/MountedPaths.h"
#include "cli/OverwrittenLine.h"
#include "cli/PlainText.h"
#include "cli/ServiceClient.h"
#include "cli/Sizes.h"
#include "service/control/Replies.h"

namespace tulo::cli {

namespace {

using control::ChangeState;
using control::FlushReply;
using control::HostState;
using control::PendingChange;

constexpr const char* kHelp =
    R"(Sends the changes that wait at once, without the usual quiet time.

PATH is a mount point or anything in a mount: of a folder, all that is in it. What a program has
open for writing goes up when it is closed. The exit status is 0; with --wait it is 1 when something
still waits and 3 when nothing waits but something needs attention (see `tulo status`).)";

constexpr int kStillWaiting = 1;
constexpr int kNeedsAttention = 3;
constexpr std::size_t kShown = 10;

struct Arguments {
  std::string path;
  bool wait = false;
  std::chrono::duration<double> timeout{0};
};

std::string why(const HostState& host) {
  if (!host.present) return "; the host is not running";
  if (host.paused) return "; the host says that nobody is signed in";
  if (!host.reachable) return "; the host cannot be reached";
  return {};
}

std::string textOf(const control::FlushProgress& progress) {
  return counted(progress.left, "change") + " left" + why(progress.host);
}

// What is left, of each change a line; `refused`: only what needs attention.
void printLeft(const std::vector<PendingChange>& changes, bool refused) {
  std::size_t shown = 0;
  for (const PendingChange& change : changes) {
    if (change.state == ChangeState::local) continue;
    if (refused && change.state != ChangeState::needsAttention) continue;
    if (++shown > kShown) {
      std::fprintf(stderr, "  ...\n");
      return;
    }
    const std::string reason = reasonOf(change);
    std::fprintf(stderr, "  %s: %s%s\n", printable(change.path).c_str(), textOf(change.state),
                 reason.empty() ? "" : (": " + reason).c_str());
  }
}

void printCounts(const FlushReply& reply, bool waited) {
  const auto [waiting, refused] = reply.left;
  if (waiting > 0 && !waited) {
    std::printf("%s on the way%s\n", counted(waiting, "change").c_str(), why(reply.host).c_str());
  } else if (waiting > 0) {
    std::fprintf(stderr, "tulo: %s left%s\n", counted(waiting, "change").c_str(),
                 why(reply.host).c_str());
  }
  if (refused > 0) {
    std::fprintf(stderr, "tulo: %s %s attention: see `tulo retry` and `tulo discard`\n",
                 counted(refused, "change").c_str(), refused == 1 ? "needs" : "need");
  }
}

int told(const FlushReply& reply, bool waited) {
  const auto [waiting, refused] = reply.left;
  printFailures(reply.outcome);
  printCounts(reply, waited);
  if (waiting == 0 && refused == 0 && reply.outcome.ok) {
    std::printf("everything is at the host\n");
  } else if (waited || refused > 0) {
    printLeft(reply.changes, !waited);
  }
  if (!reply.outcome.ok) return 1;
  if (!waited) return 0;
  return waiting > 0 ? kStillWaiting : refused > 0 ? kNeedsAttention : 0;
}

int flush(const Arguments& arguments) {
  const auto named = namedByDomain({arguments.path}, Deleted::isMeant);
  const auto& [domain, about] = *named.begin();
  const control::FlushRequest request{
      about, arguments.wait,
      std::chrono::duration_cast<std::chrono::milliseconds>(arguments.timeout)};
  FlushReply reply;
  {
    OverwrittenLine line;
    askDomain(domain, control::Operation::flush, request, [&line](const nlohmann::json& progress) {
      line.show(textOf(progress.get<control::FlushProgress>()));
    }).get_to(reply);
  }
  return told(reply, arguments.wait);
}

}  // namespace

void addFlushCommand(CLI::App& app, int& exitStatus) {
  auto arguments = std::make_shared<Arguments>();
  CLI::App* command = app.add_subcommand("flush", kHelp);
  command->add_option("PATH", arguments->path, "A mount point, or a file or folder in a mount")
      ->required()
      ->type_name("");
  CLI::Option* wait =
      command->add_flag("--wait", arguments->wait, "Return when nothing waits any more");
  command
      ->add_option_function<double>(
          "--timeout",
          [arguments](double most) { arguments->timeout = std::chrono::duration<double>(most); },
          "The most seconds that --wait waits; default: as long as it takes")
      ->check(checkSeconds)
      ->needs(wait)
      ->type_name("SECONDS");
  command->callback([arguments, &exitStatus] { exitStatus = flush(*arguments); });
}

}  // namespace tulo::cli
