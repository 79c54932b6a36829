#include "cli/RetryCommand.h"

#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "cli/MountedPaths.h"
#include "cli/PlainText.h"
#include "cli/ServiceClient.h"
#include "service/base/ServicePaths.h"
#include "service/control/Replies.h"

namespace tulo::cli {

namespace {

using control::Operation;
using control::RetryReply;

constexpr const char* kHelp =
    R"(Tries refused changes again, and those that wait for their next attempt.

Without a PATH, all of every mounted account. The path of something that was deleted stands for its
deletion.)";

int told(const RetryReply& reply) {
  printFailures(reply.outcome);
  if (reply.retried > 0) std::printf("trying %s again\n", counted(reply.retried, "change").c_str());
  if (reply.retried == 0 && reply.outcome.ok) std::printf("nothing to try again\n");
  return reply.outcome.ok ? 0 : 1;
}

int retryEverything() {
  int status = 0;
  bool any = false;
  for (const std::string& domain : knownDomains()) {
    RetryReply reply;
    try {
      askDomain(domain, Operation::retry).get_to(reply);
    } catch (const ServiceError&) {
      continue;  // Not running.
    }
    any = true;
    if (told(reply) != 0) status = 1;
  }
  if (!any) throw ServiceError("no account is mounted");
  return status;
}

int retry(const std::vector<std::string>& paths) {
  if (paths.empty()) return retryEverything();
  int status = 0;
  for (const auto& [domain, named] : namedByDomain(paths, Deleted::isMeant)) {
    if (told(askDomain(domain, Operation::retry, named).get<RetryReply>()) != 0) status = 1;
  }
  return status;
}

}  // namespace

void addRetryCommand(CLI::App& app, int& exitStatus) {
  auto paths = std::make_shared<std::vector<std::string>>();
  CLI::App* command = app.add_subcommand("retry", kHelp);
  command->add_option("PATH", *paths, "Files and folders of mounted accounts")->type_name("");
  command->callback([paths, &exitStatus] { exitStatus = retry(*paths); });
}

}  // namespace tulo::cli
