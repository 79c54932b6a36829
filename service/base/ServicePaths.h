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

// Held as long as a service of the domain runs.
class DomainLock {
 public:
  // Throws ServiceError when another process holds it, naming that process.
  explicit DomainLock(const std::string& stateDirectory);

 private:
  FileDescriptor file_;
};

}  // namespace tulo
