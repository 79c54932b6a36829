#include "host/server/Client.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "host/account/Container.h"
#include "host/base/HostError.h"
#include "platform/linux/FileDescriptor.h"

namespace tulo::host {

namespace {

FileDescriptor connectTo(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) throw StartError("the path is too long: " + path);
  std::memcpy(address.sun_path, path.data(), path.size());
  FileDescriptor fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!fd ||
      ::connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    throw StartError("no host answers at " + path + ": " + errorText(errno));
  }
  // Locks and signing in are quick; a host that is busy for longer is worth an error message.
  timeval patience{};
  patience.tv_sec = 60;
  ::setsockopt(fd.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
  ::setsockopt(fd.get(), SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
  return fd;
}

}  // namespace

std::string askHost(const std::string& container, const std::string& request) {
  const std::string path = container + "/" + Container::socketName;
  const FileDescriptor fd = connectTo(path);
  const std::string line = request + "\n";
  for (std::size_t sent = 0; sent < line.size();) {
    const ssize_t count = ::send(fd.get(), line.data() + sent, line.size() - sent, MSG_NOSIGNAL);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) throw StartError("the host at " + path + " does not listen");
    sent += static_cast<std::size_t>(count);
  }
  std::string reply;
  std::array<char, 4096> buffer;
  while (reply.empty() || reply.back() != '\n') {
    const ssize_t count = ::recv(fd.get(), buffer.data(), buffer.size(), 0);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) break;
    reply.append(buffer.data(), static_cast<std::size_t>(count));
  }
  if (reply.empty()) throw StartError("the host at " + path + " gives no reply");
  if (reply.back() == '\n') reply.pop_back();
  return reply;
}

}  // namespace tulo::host
