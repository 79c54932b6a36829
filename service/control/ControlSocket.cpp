#include "service/control/ControlSocket.h"

#include <sys/socket.h>

#include <array>
#include <cerrno>

#include "service/base/ServicePaths.h"

namespace tulo::control {

SocketAddress addressOf(const std::string& path) {
  const auto address = SocketAddress::of(path);
  if (!address) throw ServiceError("the path of the control socket is too long: " + path);
  return *address;
}

bool sendAll(int descriptor, const std::string& text) {
  std::size_t done = 0;
  while (done < text.size()) {
    const ssize_t count = ::send(descriptor, text.data() + done, text.size() - done, MSG_NOSIGNAL);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    done += static_cast<std::size_t>(count);
  }
  return true;
}

bool LineReader::next(std::string& line) {
  for (;;) {
    const std::size_t end = buffer_.find('\n');
    if (end != std::string::npos) {
      line = buffer_.substr(0, end);
      buffer_.erase(0, end + 1);
      return true;
    }
    if (buffer_.size() > longest_) return false;
    std::array<char, 65536> piece;
    const ssize_t count = ::recv(descriptor_, piece.data(), piece.size(), 0);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    buffer_.append(piece.data(), static_cast<std::size_t>(count));
  }
}

}  // namespace tulo::control
