#include "host/server/Client.h"

#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <string_view>

#include "host/account/Container.h"
#include "host/base/HostError.h"
#include "platform/linux/FileDescriptor.h"
#include "platform/linux/SocketAddress.h"

namespace tulo::host {

namespace {

// Locks and signing in are quick; a host that is busy for longer is worth an error message.
constexpr std::chrono::seconds patience{60};

FileDescriptor connectTo(const std::string& path) {
  const auto address = SocketAddress::of(path);
  if (!address) throw StartError("the path is too long: " + path);
  FileDescriptor fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!fd || address->connect(fd.get()) != 0) {
    throw StartError("no host answers at " + path + ": " + errorText(errno));
  }
  timeval time{};
  time.tv_sec = patience.count();
  ::setsockopt(fd.get(), SOL_SOCKET, SO_RCVTIMEO, &time, sizeof time);
  ::setsockopt(fd.get(), SOL_SOCKET, SO_SNDTIMEO, &time, sizeof time);
  return fd;
}

bool send(int fd, std::string_view line) {
  while (!line.empty()) {
    const ssize_t count = ::send(fd, line.data(), line.size(), MSG_NOSIGNAL);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    line.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

// To the line feed, or to the end of the stream.
std::string receive(int fd) {
  std::string reply;
  std::array<char, 4096> buffer;
  while (reply.empty() || reply.back() != '\n') {
    const ssize_t count = ::recv(fd, buffer.data(), buffer.size(), 0);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) break;
    reply.append(buffer.data(), static_cast<std::size_t>(count));
  }
  return reply;
}

}  // namespace

std::string askHost(const std::string& container, const std::string& request) {
  const std::string path = container + "/" + Container::socketName;
  const FileDescriptor fd = connectTo(path);
  if (!send(fd.get(), request + "\n")) {
    throw StartError("the host at " + path + " does not listen");
  }
  std::string reply = receive(fd.get());
  if (reply.empty()) throw StartError("the host at " + path + " gives no reply");
  if (reply.back() == '\n') reply.pop_back();
  return reply;
}

}  // namespace tulo::host
