// The reference host application: serves accounts to the file-provider extension.
//
// For each account it keeps an index database in the shared container, and for all of them it
// answers requests on the container's socket. docs/host-contract.md describes both for the makers
// of other hosts.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/AccountKinds.h"
#include "host/server/Faults.h"
#include "host/server/Server.h"

namespace tulo::host {

struct HostOptions {
  // The primary account's folder.
  std::string root;
  // Further accounts, by name.
  std::map<std::string, AccountSource> accounts;
  // Made if it does not exist.
  std::string container;
  // The most bytes of each account.
  std::optional<std::int64_t> quota;
  std::vector<Fault> faults;
  std::vector<Delay> delays;
  // A log line for each request.
  bool logRequests = false;

  // Staged copies that no request has named, and handed-over copies that nobody has taken, are
  // removed at this age.
  std::chrono::seconds uncollectedAge = std::chrono::days(1);
  std::chrono::milliseconds collectionInterval = std::chrono::hours(1);
  Server::Limits limits;
};

// Threads: one thread owns the object; faults() may be used on any. It uses the process's log and
// nothing else of the process, so that several hosts, each with a container of its own, can live in
// one. Lifetime: destruction stops it.
class Host {
 public:
  // Throws StartError for options that cannot be served.
  explicit Host(HostOptions options);
  ~Host();
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;

  // Brings every index up to date and then opens the socket: when the call returns, requests are
  // answered. Throws StartError, after which the object can only be destroyed.
  void start();

  // Closes the socket, lets the running requests end, and leaves each index complete in one file.
  void stop();

  // The container in force, absolute.
  const std::string& containerPath() const;

  // Failures and delays for requests to come.
  Faults& faults();

 private:
  struct Running;
  std::unique_ptr<Running> running_;
};

}  // namespace tulo::host
