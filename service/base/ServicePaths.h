// Where the service keeps its things.
//
// Threads: pure functions of the environment.
#pragma once

#include <stdexcept>
#include <string>

#include "platform/linux/FileDescriptor.h"

namespace tulo {

class ServiceError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

namespace paths {

// $XDG_STATE_HOME/tulo/<domain>, else ~/.local/state/tulo/<domain>: the replica.
std::string stateDirectory(const std::string& domain);
// $XDG_RUNTIME_DIR/tulo/<domain>.sock, else in the state directory: the control socket.
std::string controlSocket(const std::string& domain);
// Creates the directory and those above it, for this user only. Throws ServiceError.
void createPrivateDirectory(const std::string& path);

}  // namespace paths

// Another process holds the lock of a domain.
class DomainTaken : public ServiceError {
 public:
  DomainTaken(std::string process, std::string place);

  // As they stand in the lock; the place is empty as long as nothing is mounted.
  const std::string& process() const { return process_; }
  const std::string& place() const { return place_; }

 private:
  std::string process_;
  std::string place_;
};

// Held as long as a service of the domain runs.
class DomainLock {
 public:
  // Throws DomainTaken, or ServiceError where there can be no lock.
  explicit DomainLock(const std::string& stateDirectory);

  // Where the account is mounted, for those who find the lock taken.
  void tellPlace(const std::string& mountPoint) const;

 private:
  void tell(const std::string& text) const;

  FileDescriptor file_;
};

}  // namespace tulo
