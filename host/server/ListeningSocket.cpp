#include "host/server/ListeningSocket.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "host/base/HostError.h"
#include "platform/linux/SocketAddress.h"

namespace tulo::host {

namespace {

// The extension can connect to no longer path.
constexpr std::size_t longestPath = 103;

}  // namespace

ListeningSocket::ListeningSocket(const Container& container, const HostLog& log)
    : container_(container), log_(log) {}

void ListeningSocket::removeStale() {
  struct stat info;
  const int folder = container_.folder();
  if (::fstatat(folder, Container::socketName, &info, AT_SYMLINK_NOFOLLOW) != 0) return;
  const std::string path = container_.pathOf(Container::socketName);
  // The container's lock is ours: whoever made this socket is gone.
  if (!S_ISSOCK(info.st_mode)) throw StartError(path + " is in the way: it is not a socket");
  if (::unlinkat(folder, Container::socketName, 0) != 0) {
    throw StartError(path + " cannot be replaced: " + errorText(errno));
  }
  log_.info("replacing the socket that a host has left behind");
}

void ListeningSocket::open() {
  const std::string path = container_.pathOf(Container::socketName);
  const auto address = SocketAddress::of(path);
  if (!address || path.size() > longestPath) {
    throw StartError("the socket's path " + path + " has " + std::to_string(path.size()) +
                     " bytes, more than " + std::to_string(longestPath) +
                     "; choose a container with a shorter path");
  }
  removeStale();
  listener_.reset(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  // The mode is set before the name exists, and once more for systems that ignore the first.
  if (!listener_ || ::fchmod(listener_.get(), 0600) != 0 || address->bind(listener_.get()) != 0 ||
      ::fchmodat(container_.folder(), Container::socketName, 0600, 0) != 0 ||
      ::listen(listener_.get(), SOMAXCONN) != 0) {
    throw StartError("the socket " + path + " cannot be made: " + errorText(errno));
  }
}

void ListeningSocket::remove() {
  ::unlinkat(container_.folder(), Container::socketName, 0);
}

std::optional<FileDescriptor> ListeningSocket::accept() {
  constexpr int flags = SOCK_CLOEXEC | SOCK_NONBLOCK;
  FileDescriptor fd(::accept4(listener_.get(), nullptr, nullptr, flags));
  if (!fd && (errno == EMFILE || errno == ENFILE)) return std::nullopt;
  if (fd && !isWelcome(fd.get())) fd.reset();
  return fd;
}

bool ListeningSocket::isWelcome(int fd) const {
  ucred peer{};
  socklen_t size = sizeof peer;
  if (::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) return false;
  if (peer.uid == ::geteuid() || peer.uid == 0) return true;
  log_.error("refused a connection of user " + std::to_string(peer.uid));
  return false;
}

}  // namespace tulo::host
