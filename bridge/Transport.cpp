#include <fcntl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "bridge/HostBridge.h"
#include "bridge/HostBridgeError.h"
#include "index/Index.h"
#include "platform/FileManager.h"

// One exchange with the host application over its socket.

namespace tulo {
namespace {

// The shortest path field of a socket address among the systems that we run on has 104 bytes, one
// of them the terminating zero. Linux has room for four more; the limit is the same everywhere, so
// that a container which works here works there.
constexpr std::size_t longestSocketPath = 103;

// A program that is started while an exchange runs does not get the socket: it would keep the
// connection open for as long as it lives.
int privateSocket() {
#ifdef SOCK_CLOEXEC
  return ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
#else
  const int descriptor = ::socket(AF_UNIX, SOCK_STREAM, 0);
  if (descriptor >= 0) ::fcntl(descriptor, F_SETFD, FD_CLOEXEC);
  return descriptor;
#endif
}

// What the call gives once no signal has interrupted it. A process that is stopped and goes on is
// such a signal on some systems, and says nothing of the exchange.
template <typename Call>
ssize_t uninterrupted(const Call& call) {
  for (;;) {
    const ssize_t result = call();
    if (result >= 0 || errno != EINTR) return result;
  }
}

class Socket {
 public:
  Socket() : descriptor_(privateSocket()) {
    if (descriptor_ < 0) throw HostBridgeError::unreachable();
  }
  ~Socket() { ::close(descriptor_); }
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;

  void connect(const std::string& path) {
    if (path.size() > longestSocketPath) {
      throw HostBridgeError::failed("socket path too long: " + std::to_string(path.size()) +
                                    " bytes");
    }
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.data(), path.size());
    if (::connect(descriptor_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
      throw HostBridgeError::unreachable();
    }
  }

  // A time-out that cannot be set is no reason to fail: the exchange merely waits longer.
  void setTimeout(std::int64_t seconds) {
    timeval time{};
    time.tv_sec = static_cast<decltype(time.tv_sec)>(seconds);
    ::setsockopt(descriptor_, SOL_SOCKET, SO_RCVTIMEO, &time, sizeof time);
    ::setsockopt(descriptor_, SOL_SOCKET, SO_SNDTIMEO, &time, sizeof time);
  }

  void sendAll(const std::string& bytes) {
    for (std::size_t offset = 0; offset < bytes.size();) {
      const ssize_t sent = uninterrupted(
          [&] { return ::send(descriptor_, bytes.data() + offset, bytes.size() - offset, 0); });
      if (sent < 1) throw HostBridgeError::unreachable();
      offset += static_cast<std::size_t>(sent);
    }
  }

  // What arrives until a chunk ends in a line feed, or until nothing more arrives.
  std::string receiveReply() {
    std::array<char, 4096> chunk{};
    std::string reply;
    for (;;) {
      const ssize_t received =
          uninterrupted([&] { return ::recv(descriptor_, chunk.data(), chunk.size(), 0); });
      if (received <= 0) return reply;
      reply.append(chunk.data(), static_cast<std::size_t>(received));
      if (reply.back() == '\n') return reply;
    }
  }

 private:
  int descriptor_;
};

// JSON's true, or a number that is equal to 1, which the platform's bridging does not tell from it.
bool readsAsTrue(const platform::JSONValue& value) {
  if (const auto* boolean = std::get_if<bool>(&value)) return *boolean;
  const auto* number = std::get_if<double>(&value);
  return number && *number == 1;
}

const std::string* stringIn(const platform::JSONObject& object, std::string_view key) {
  const auto found = object.find(key);
  return found == object.end() ? nullptr : std::get_if<std::string>(&found->second);
}

}  // namespace

platform::URL HostBridge::socketURL() {
  const auto container = platform::FileManager::containerURL(Index::appGroup());
  if (!container) throw HostBridgeError::unreachable();
  return container->appendingPathComponent("fp.sock");
}

std::int64_t HostBridge::wholeSeconds(double timeout) {
  constexpr double limit = 9223372036854775808.0;  // 2^63: the first that does not fit
  if (!std::isfinite(timeout) || timeout >= limit || timeout < -limit) {
    std::fprintf(stderr, "tulo: %g is not a time-out in seconds\n", timeout);
    std::abort();
  }
  return static_cast<std::int64_t>(timeout);
}

platform::JSONObject HostBridge::roundTrip(const platform::JSONObject& request, double timeout) {
  const std::string path = socketURL().path();
  if (!platform::FileManager::fileExists(path)) throw HostBridgeError::unreachable();
  Socket socket;
  socket.connect(path);
  socket.setTimeout(wholeSeconds(timeout));
  socket.sendAll(platform::JSONSerialization::data(request) + '\n');
  const std::string reply = socket.receiveReply();
  if (auto object = platform::JSONSerialization::object(reply)) return *std::move(object);
  throw HostBridgeError::failed("no reply from host app");
}

void HostBridge::succeed(const platform::JSONObject& reply) {
  const auto ok = reply.find("ok");
  if (ok != reply.end() && readsAsTrue(ok->second)) return;
  const std::string* error = stringIn(reply, "error");
  std::string message = error ? *error : "unknown error";
  if (const std::string* kind = stringIn(reply, "kind")) {
    throw HostBridgeError::remote(*kind, std::move(message));
  }
  throw HostBridgeError::failed(std::move(message));
}

}  // namespace tulo
