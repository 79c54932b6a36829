// A running host, spoken to byte by byte.
#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <cstring>
#include <string>
#include <string_view>

#include "platform/linux/FileDescriptor.h"
#include "tests/host/HostFixture.h"

namespace tulo::test {

inline FileDescriptor connected(const std::string& path) {
  FileDescriptor fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path.data(), path.size());
  if (::connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    fd.reset();
  }
  return fd;
}

class HostServerTest : public HostTest {
 protected:
  FileDescriptor connect() { return connected(inContainer("fp.sock")); }
  // What comes until the peer closes.
  static std::string received(int fd) {
    std::string all;
    char byte = 0;
    while (::recv(fd, &byte, 1, 0) == 1)
      all += byte;
    return all;
  }
  static void say(int fd, std::string_view text) {
    ASSERT_EQ(::send(fd, text.data(), text.size(), MSG_NOSIGNAL),
              static_cast<ssize_t>(text.size()));
  }
  const std::string fetch = R"({"op":"fetch","account":"primary","ulid":"none"})";
};

}  // namespace tulo::test
