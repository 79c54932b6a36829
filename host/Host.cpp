#include "host/Host.h"

#include <chrono>
#include <thread>
#include <utility>

#include "host/account/AccountName.h"
#include "host/account/Container.h"
#include "host/account/Downloads.h"
#include "host/account/Staging.h"
#include "host/account/Thumbnails.h"
#include "host/base/HostError.h"
#include "host/base/HostLog.h"
#include "host/index/Ulid.h"
#include "host/server/RequestHandler.h"
#include "host/server/StopSignal.h"

namespace tulo::host {

namespace {

// Thumbnails can be made again at any time; they are kept for as long as somebody may still look.
constexpr std::chrono::seconds thumbnailAge = std::chrono::days(30);

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

  void addAccount(const std::string& name, const AccountSource& source) {
    accounts[name] = makeAccount(source, {name, options.quota, container, ulids, log});
  }

  void removeUncollected() {
    try {
      const auto now = std::chrono::system_clock::now();
      staging.removeUncollected(options.uncollectedAge, now);
      downloads.removeUncollected(options.uncollectedAge, now);
      thumbnails.removeUncollected(thumbnailAge, now);
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
  std::thread collector;
};

Host::Host(HostOptions options) {
  for (const auto& [name, source] : options.accounts)
    requireFurtherAccountName(name);
  try {
    running_ = std::make_unique<Running>(std::move(options));
    Running& host = *running_;
    requireUsablePath(host.log, host.container.path());
    for (const Fault& fault : host.options.faults)
      host.faults.add(fault);
    for (const Delay& delay : host.options.delays)
      host.faults.add(delay);
    host.addAccount(primaryAccount, FolderSource{host.options.root});
    for (const auto& [name, source] : host.options.accounts)
      host.addAccount(name, source);
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
  host.collector = std::thread([&host] {
    do {
      host.removeUncollected();
    } while (!host.stopSignal.wait(host.options.collectionInterval));
  });
}

void Host::stop() {
  Running& host = *running_;
  host.stopSignal.raise();
  host.server.stop();
  if (host.collector.joinable()) host.collector.join();
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
