#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "service/base/ServicePaths.h"
#include "service/control/Control.h"
#include "service/control/ControlSocket.h"

namespace tulo {

namespace {

constexpr std::size_t kLongestAnswer = 64 << 20;

}  // namespace

namespace control {

sockaddr_un addressOf(const std::string& path) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) {
    throw ServiceError("the path of the control socket is too long: " + path);
  }
  std::memcpy(address.sun_path, path.data(), path.size());
  return address;
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

}  // namespace control

ControlClient::ControlClient(const std::string& path)
    : socket_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  const sockaddr_un address = control::addressOf(path);
  if (::connect(socket_.get(), control::generic(address), sizeof address) != 0) {
    throw ServiceError("no service answers at " + path + " (" + std::strerror(errno) +
                       "); is the account mounted?");
  }
}

void ControlClient::ask(const std::string& request,
                        const std::function<bool(const std::string&)>& line) {
  if (!control::sendAll(socket_.get(), request + '\n')) {
    throw ServiceError("the service closed the connection");
  }
  control::LineReader reader(socket_.get(), kLongestAnswer);
  std::string answer;
  while (reader.next(answer)) {
    if (!line(answer)) return;
  }
}

}  // namespace tulo
