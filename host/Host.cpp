#include "host/Host.h"

#include <filesystem>
#include <system_error>
#include <thread>

#include "host/account/Container.h"
#include "host/account/Downloads.h"
#include "host/account/Staging.h"
#include "host/account/Thumbnails.h"
#include "host/base/HostError.h"
#include "host/base/HostLog.h"
#include "host/folder/Account.h"
#include "host/server/RequestHandler.h"
#include "host/server/StopSignal.h"

namespace tulo::host {

namespace {

namespace fs = std::filesystem;

// Thumbnails can be made again at any time; they are kept for as long as somebody may still look.
constexpr std::chrono::seconds thumbnailAge{30 * 24 * 60 * 60};
constexpr std::size_t longestAccountName = 200;

void requireAccountName(const std::string& name) {
  const std::string quotedName = inQuotes(name);
  if (name.empty() || name.size() > longestAccountName) {
    throw StartError("the account name " + quotedName + " must have 1 to " +
                     std::to_string(longestAccountName) + " bytes");
  }
  if (name == Account::primaryName) {
    throw StartError("the account \"primary\" is the one of --root");
  }
  // The name becomes part of a file name, which the extension opens as a part of a URI.
  if (name.find_first_of(std::string_view("/?#%\0", 5)) != std::string::npos) {
    throw StartError("the account name " + quotedName + " must not contain /, ?, #, % or NUL");
  }
}

std::string resolvedFolder(const std::string& account, const std::string& path) {
  if (path.empty()) throw StartError("the account \"" + account + "\" has no folder");
  std::error_code error;
  const fs::path resolved = fs::canonical(path, error);
  if (error) throw StartError("the folder " + path + ": " + error.message());
  if (!fs::is_directory(resolved, error)) throw StartError(path + " is not a folder");
  return resolved.string();
}

// A JSON reply carries the paths of handed-over copies, and the index is opened through a URI.
void requireUsablePath(const HostLog& log, const std::string& container) {
  if (container.find_first_of("?#%") != std::string::npos) {
    log.error("the container's path " + inQuotes(container) +
              " contains ?, # or %: the extension may not find the index there");
  }
}

}  // namespace

struct Host::Running {
  explicit Running(HostOptions from)
      : options(std::move(from)),
        log(options.logRequests),
        container(options.container),
        staging(container, log),
        downloads(container, ulids, log),
        thumbnails(container, log),
        handler({accounts, staging, downloads, thumbnails, faults, stopSignal, log}),
        server(container, log, options.limits,
               [this](std::string_view request) { return handler.answer(request); }) {}

  void addAccount(const std::string& name, const std::string& folder) {
    const std::string root = resolvedFolder(name, folder);
    std::error_code error;
    if (fs::equivalent(root, container.path(), error)) {
      throw StartError("the folder " + root + " is the container itself");
    }
    const Account::Options account{name, root, options.quota};
    accounts[name] = std::make_unique<Account>(account, container, ulids, log);
  }

  void sweep() {
    try {
      const auto now = std::chrono::system_clock::now();
      staging.sweep(options.sweepAge, now);
      downloads.sweep(options.sweepAge, now);
      thumbnails.sweep(thumbnailAge, now);
    } catch (const OperationError& error) {
      log.error("sweeping: " + std::string(error.what()));
    }
  }

  // Members are destroyed from the last to the first: the server, whose workers use all the others,
  // is the last of them.
  HostOptions options;
  HostLog log;
  Container container;
  UlidSource ulids;
  StopSignal stopSignal;
  Faults faults;
  Staging staging;
  Downloads downloads;
  Thumbnails thumbnails;
  Accounts accounts;
  RequestHandler handler;
  Server server;
  std::thread sweeper;
};

Host::Host(HostOptions options) {
  for (const auto& [name, folder] : options.accounts)
    requireAccountName(name);
  try {
    running_ = std::make_unique<Running>(std::move(options));
    Running& host = *running_;
    requireUsablePath(host.log, host.container.path());
    for (const Fault& fault : host.options.faults)
      host.faults.add(fault);
    for (const Delay& delay : host.options.delays)
      host.faults.add(delay);
    host.addAccount(Account::primaryName, host.options.root);
    for (const auto& [name, folder] : host.options.accounts)
      host.addAccount(name, folder);
  } catch (const OperationError& error) {
    throw StartError(error.what());
  }
}

Host::~Host() {
  stop();
}

void Host::start() {
  Running& host = *running_;
  try {
    for (const auto& [name, account] : host.accounts)
      account->start();
  } catch (const OperationError& error) {
    throw StartError(error.what());
  }
  host.server.start();
  host.sweeper = std::thread([&host] {
    do {
      host.sweep();
    } while (!host.stopSignal.wait(host.options.sweepInterval));
  });
}

void Host::stop() {
  Running& host = *running_;
  host.stopSignal.raise();
  host.server.stop();
  if (host.sweeper.joinable()) host.sweeper.join();
  for (const auto& [name, account] : host.accounts)
    account->stop();
}

const std::string& Host::containerPath() const {
  return running_->container.path();
}

Faults& Host::faults() {
  return running_->faults;
}

}  // namespace tulo::host
