#include "service/control/ControlClient.h"

#include <sys/socket.h>

#include <cerrno>
#include <cstring>

#include "service/base/ServicePaths.h"
#include "service/control/ControlSocket.h"

namespace tulo {

namespace {

constexpr std::size_t kLongestAnswer = 64 << 20;

}  // namespace

ControlClient::ControlClient(const std::string& path)
    : socket_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  if (control::addressOf(path).connect(socket_.get()) != 0) {
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
