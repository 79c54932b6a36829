// What lies in the container that is shared with the host, as docs/host-contract.md has it.
//
// Threads: pure functions.
#pragma once

#include <string>

namespace tulo::container {

// The socket on which the host answers.
inline std::string hostSocket(const std::string& container) {
  return container + "/fp.sock";
}

// Where the provider puts copies of what it hands to the host.
inline std::string stagingFolder(const std::string& container) {
  return container + "/fp-upload";
}

}  // namespace tulo::container
