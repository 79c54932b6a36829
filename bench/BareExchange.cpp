#include "bench/BareExchange.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <utility>

#include "platform/linux/SocketAddress.h"

namespace tulo::bench {
namespace {

void expect(bool isTrue, const char* what) {
  if (isTrue) return;
  std::perror(what);
  std::abort();
}

SocketAddress addressOf(const std::string& path) {
  const auto address = SocketAddress::of(path);
  expect(address.has_value(), "socket path");
  return *address;
}

void sendAll(int socket, const std::string& bytes) {
  for (std::size_t offset = 0; offset < bytes.size();) {
    const auto sent = ::send(socket, bytes.data() + offset, bytes.size() - offset, MSG_NOSIGNAL);
    if (sent < 1) return;
    offset += static_cast<std::size_t>(sent);
  }
}

std::string receiveLine(int socket) {
  std::string received;
  char chunk[4096];
  while (received.empty() || received.back() != '\n') {
    const auto count = ::recv(socket, chunk, sizeof chunk, 0);
    if (count <= 0) break;
    received.append(chunk, static_cast<std::size_t>(count));
  }
  return received;
}

}  // namespace

EchoServer::EchoServer(const std::string& socketPath, std::string reply)
    : listener_(::socket(AF_UNIX, SOCK_STREAM, 0)), reply_(std::move(reply)) {
  ::unlink(socketPath.c_str());
  expect(addressOf(socketPath).bind(listener_) == 0, "bind");
  expect(::listen(listener_, 64) == 0, "listen");
  thread_ = std::thread([this] { serve(); });
}

EchoServer::~EchoServer() {
  ::shutdown(listener_, SHUT_RDWR);
  thread_.join();
  ::close(listener_);
}

void EchoServer::serve() const {
  while (true) {
    const int connection = ::accept(listener_, nullptr, nullptr);
    if (connection < 0) return;
    receiveLine(connection);
    sendAll(connection, reply_);
    ::close(connection);
  }
}

std::string bareExchange(const std::string& socketPath, const std::string& request) {
  const int socket = ::socket(AF_UNIX, SOCK_STREAM, 0);
  expect(addressOf(socketPath).connect(socket) == 0, "connect");
  sendAll(socket, request);
  std::string reply = receiveLine(socket);
  ::close(socket);
  expect(!reply.empty(), "receiving a reply");
  return reply;
}

}  // namespace tulo::bench
