// A connection to whoever listens on a socket, spoken to byte by byte.
#pragma once

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <string>
#include <string_view>

#include "platform/linux/FileDescriptor.h"
#include "platform/linux/SocketAddress.h"

namespace tulo::test {

// Invalid when nobody listens.
inline FileDescriptor connected(const std::string& path) {
  FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (SocketAddress::of(path)->connect(socket.get()) != 0) socket.reset();
  return socket;
}

inline void say(int socket, std::string_view text) {
  ASSERT_EQ(::send(socket, text.data(), text.size(), MSG_NOSIGNAL),
            static_cast<ssize_t>(text.size()));
}

// One that has asked the host for something and waits for the answer.
inline FileDescriptor waitingClient(const std::string& path) {
  FileDescriptor socket = connected(path);
  say(socket.get(), "{}\n");
  return socket;
}

}  // namespace tulo::test
