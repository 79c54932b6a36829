// The address of a Unix socket that lies in a folder.
//
// Threads: an object does not change.
// Errors: those of the system's calls.
#pragma once

#include <sys/un.h>

#include <optional>
#include <string>

namespace tulo {

class SocketAddress {
 public:
  // Nothing for a path that is too long for a socket.
  static std::optional<SocketAddress> of(const std::string& path);

  // As the system's calls of these names: 0, or -1 and an errno.
  int connect(int socket) const;
  int bind(int socket) const;

 private:
  SocketAddress() = default;

  sockaddr_un address_ = {};
};

}  // namespace tulo
