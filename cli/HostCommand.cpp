#include "cli/HostCommand.h"

#include <csignal>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "host/Host.h"
#include "host/base/HostError.h"
#include "host/server/Client.h"
#include "platform/linux/Container.h"
#include "platform/linux/DescriptorLimit.h"

namespace tulo::cli {
namespace {

using nlohmann::json;

constexpr const char* groupHelp =
    R"(The reference host application: serves local folders as accounts to the extension.

"serve" runs until it is interrupted (SIGINT) or terminated (SIGTERM). The other commands talk to the
host that serves the same container.)";

constexpr const char* serveHelp =
    R"(Serves local folders as accounts: an index database for each and one socket for all.

Prints one line that begins with "serving" when the indexes are complete and requests are answered.)";

constexpr const char* faultHelp =
    R"(Lets requests of OP fail: the next N, or all of them. OP is fetch, thumbnail, create, modify,
delete or any. KIND is the failure kind to answer with (quota, not_found, network, ... or any
other word), or a misbehaviour: garbage, hangup, silent, no-kind (without doing the work), huge,
drop-reply, no-result (after doing it))";

// What the command line holds; the options of CLI11 write into it, so it lives as long as they do.
struct Arguments {
  std::string container;
  std::string root;
  std::vector<std::string> accounts;
  std::vector<std::string> faults;
  std::vector<std::string> delays;
  std::int64_t quota = 0;
  bool log = false;
  std::string account = "primary";
  std::string path;
  std::int64_t user = 0;
  bool asJson = false;
};

template <typename Parse>
std::string complaint(Parse parse, const std::string& text) {
  try {
    parse(text);
    return {};
  } catch (const host::StartError& error) {
    return error.what();
  }
}

std::pair<std::string, std::string> splitAccount(const std::string& text) {
  const auto equals = text.find('=');
  if (equals == std::string::npos || equals == 0 || equals + 1 == text.size()) {
    throw host::StartError("\"" + text + "\": expected NAME=FOLDER");
  }
  return {text.substr(0, equals), text.substr(equals + 1)};
}

std::string containerOf(const Arguments& arguments) {
  if (!arguments.container.empty()) platform::setContainerDirectory(arguments.container);
  return platform::containerDirectory();
}

host::HostOptions hostOptions(const Arguments& arguments, bool hasQuota) {
  host::HostOptions options;
  options.root = arguments.root;
  options.container = containerOf(arguments);
  options.logRequests = arguments.log;
  if (hasQuota) options.quota = arguments.quota;
  for (const std::string& account : arguments.accounts) {
    auto [name, folder] = splitAccount(account);
    if (!options.accounts.emplace(name, host::FolderSource{folder}).second) {
      throw host::StartError("the account \"" + name + "\" is given twice");
    }
  }
  for (const std::string& fault : arguments.faults) {
    options.faults.push_back(host::parseFault(fault));
  }
  for (const std::string& delay : arguments.delays) {
    options.delays.push_back(host::parseDelay(delay));
  }
  return options;
}

// The signals that end the command, blocked in every thread for as long as the object lives: they
// are waited for, not handled.
class EndSignals {
 public:
  EndSignals() {
    sigemptyset(&set_);
    sigaddset(&set_, SIGINT);
    sigaddset(&set_, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &set_, &before_);
  }
  ~EndSignals() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  EndSignals(const EndSignals&) = delete;
  EndSignals& operator=(const EndSignals&) = delete;

  void wait() {
    int number = 0;
    while (sigwait(&set_, &number) != 0) {
    }
  }

 private:
  sigset_t set_{};
  sigset_t before_{};
};

int report(const std::exception& error) {
  std::fprintf(stderr, "tulo host: %s\n", error.what());
  return 1;
}

int serve(const Arguments& arguments, bool hasQuota) {
  try {
    // A signal during the first look at a large folder ends the command as soon as that is done.
    EndSignals signals;
    raiseDescriptorLimit();
    host::Host host(hostOptions(arguments, hasQuota));
    host.start();
    std::printf("serving %s in %s\n", arguments.root.c_str(), host.containerPath().c_str());
    std::fflush(stdout);
    signals.wait();
    host.stop();
    return 0;
  } catch (const std::exception& error) {
    return report(error);
  }
}

// Sends a request of the host's own command; prints nothing but what went wrong.
std::optional<json> ask(const Arguments& arguments, const json& request) {
  const std::string text = host::askHost(containerOf(arguments), request.dump());
  json reply = json::parse(text, nullptr, false);
  if (reply.is_object() && reply.value("ok", false)) return reply;
  const std::string error =
      reply.is_object() ? reply.value("error", "unknown error") : "the reply is not JSON: " + text;
  std::fprintf(stderr, "tulo host: %s\n", error.c_str());
  return std::nullopt;
}

int askOnly(const Arguments& arguments, const json& request) {
  try {
    return ask(arguments, request) ? 0 : 1;
  } catch (const std::exception& error) {
    return report(error);
  }
}

void printStatus(const json& account) {
  std::printf("%s: %s, %lld folders, %lld files%s\n",
              account.at("account").get<std::string>().c_str(),
              account.at("root").get<std::string>().c_str(), account.at("folders").get<long long>(),
              account.at("items").get<long long>(),
              account.at("signed_in").get<bool>() ? "" : ", signed out");
}

int status(const Arguments& arguments) {
  try {
    const auto reply = ask(arguments, {{"op", "status"}});
    if (!reply) return 1;
    if (arguments.asJson) {
      std::printf("%s\n", json{{"accounts", reply->at("accounts")}}.dump().c_str());
    } else {
      for (const json& account : reply->at("accounts"))
        printStatus(account);
    }
    return 0;
  } catch (const std::exception& error) {
    return report(error);
  }
}

void addContainer(CLI::App& command, Arguments& arguments) {
  command
      .add_option("--container", arguments.container,
                  "The shared container (default: $TULO_CONTAINER, else $XDG_DATA_HOME/tulo, "
                  "else ~/.local/share/tulo)")
      ->type_name("DIR");
}

void addAccount(CLI::App& command, Arguments& arguments) {
  command.add_option("--account", arguments.account, "The account (default: primary)")
      ->type_name("NAME");
}

void addServe(CLI::App& group, const std::shared_ptr<Arguments>& arguments, int& exitStatus) {
  CLI::App* command = group.add_subcommand("serve", serveHelp);
  addContainer(*command, *arguments);
  command->add_option("--root", arguments->root, "The primary account's folder")
      ->type_name("FOLDER")
      ->required();
  command->add_option("--account", arguments->accounts, "A further account and its folder")
      ->type_name("NAME=FOLDER")
      ->allow_extra_args(false)
      ->check([](const std::string& text) { return complaint(splitAccount, text); });
  const CLI::Option* quota =
      command->add_option("--quota", arguments->quota, "The most bytes of each account")
          ->type_name("BYTES")
          ->check(CLI::NonNegativeNumber);
  command->add_option("--fault", arguments->faults, faultHelp)
      ->type_name("OP=KIND[:N]")
      ->allow_extra_args(false)
      ->check([](const std::string& text) { return complaint(host::parseFault, text); });
  command->add_option("--delay", arguments->delays, "Lets each request of OP wait first")
      ->type_name("OP=MS")
      ->allow_extra_args(false)
      ->check([](const std::string& text) { return complaint(host::parseDelay, text); });
  command->add_flag("--log", arguments->log, "A log line on standard error for each request");
  command->callback(
      [arguments, quota, &exitStatus] { exitStatus = serve(*arguments, quota->count() > 0); });
}

void addLocks(CLI::App& group, const std::shared_ptr<Arguments>& arguments, int& exitStatus) {
  for (const bool locks : {true, false}) {
    CLI::App* command = group.add_subcommand(
        locks ? "lock" : "unlock",
        locks ? "Marks a file as locked by a user; it can then be neither changed nor deleted"
              : "Clears the lock of a file");
    addContainer(*command, *arguments);
    addAccount(*command, *arguments);
    command->add_option("PATH", arguments->path, "The file, relative to the account's folder")
        ->required();
    if (locks) {
      command->add_option("--user", arguments->user, "The user's number")
          ->type_name("N")
          ->required();
    }
    command->callback([arguments, locks, &exitStatus] {
      json request{{"op", locks ? "lock" : "unlock"},
                   {"account", arguments->account},
                   {"path", arguments->path}};
      if (locks) request["user"] = arguments->user;
      exitStatus = askOnly(*arguments, request);
    });
  }
}

void addSignIn(CLI::App& group, const std::shared_ptr<Arguments>& arguments, int& exitStatus) {
  for (const std::string operation : {"logout", "login"}) {
    CLI::App* command = group.add_subcommand(
        operation, operation == "logout" ? "Signs an account out: its requests fail as unauthorized"
                                         : "Signs an account in again");
    addContainer(*command, *arguments);
    addAccount(*command, *arguments);
    command->callback([arguments, operation, &exitStatus] {
      exitStatus = askOnly(*arguments, {{"op", operation}, {"account", arguments->account}});
    });
  }
}

void addStatus(CLI::App& group, const std::shared_ptr<Arguments>& arguments, int& exitStatus) {
  CLI::App* command = group.add_subcommand("status", "Tells what the running host serves");
  addContainer(*command, *arguments);
  command->add_flag("--json", arguments->asJson, "As one JSON object");
  command->callback([arguments, &exitStatus] { exitStatus = status(*arguments); });
}

}  // namespace

void addHostCommand(CLI::App& app, int& exitStatus) {
  auto arguments = std::make_shared<Arguments>();
  CLI::App* group = app.add_subcommand("host", groupHelp);
  group->require_subcommand(1, 1);
  addServe(*group, arguments, exitStatus);
  addLocks(*group, arguments, exitStatus);
  addSignIn(*group, arguments, exitStatus);
  addStatus(*group, arguments, exitStatus);
}

}  // namespace tulo::cli
