#include "platform/linux/SocketAddress.h"

#include <sys/socket.h>

namespace tulo {

namespace {

// The cast is the socket interface's own.
const sockaddr* generic(const sockaddr_un& address) {
  return reinterpret_cast<const sockaddr*>(&address);
}

}  // namespace

std::optional<SocketAddress> SocketAddress::of(const std::string& path) {
  SocketAddress result;
  sockaddr_un& address = result.address_;
  // A zero byte ends it.
  if (path.size() >= sizeof address.sun_path) return std::nullopt;
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, path.size());
  return result;
}

int SocketAddress::connect(int socket) const {
  return ::connect(socket, generic(address_), sizeof address_);
}

int SocketAddress::bind(int socket) const {
  return ::bind(socket, generic(address_), sizeof address_);
}

}  // namespace tulo
