#include "tests/support/ClientSocket.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

namespace tulo::test {
namespace {

bool isConnectedTo(int descriptor, const std::string& path) {
  sockaddr_un address{};
  socklen_t size = sizeof address;
  if (::getpeername(descriptor, reinterpret_cast<sockaddr*>(&address), &size) != 0) return false;
  return address.sun_family == AF_UNIX && path == address.sun_path;
}

std::int64_t timeout(int descriptor, int option) {
  timeval value{};
  socklen_t size = sizeof value;
  if (::getsockopt(descriptor, SOL_SOCKET, option, &value, &size) != 0) return -1;
  return std::int64_t{value.tv_sec} * 1'000'000 + value.tv_usec;
}

}  // namespace

std::optional<SocketTimeouts> timeoutsOfClientOf(const std::string& socketPath) {
  constexpr int highest = 4096;
  for (int descriptor = 0; descriptor < highest; ++descriptor)
    if (isConnectedTo(descriptor, socketPath))
      return SocketTimeouts{timeout(descriptor, SO_RCVTIMEO), timeout(descriptor, SO_SNDTIMEO)};
  return std::nullopt;
}

}  // namespace tulo::test
