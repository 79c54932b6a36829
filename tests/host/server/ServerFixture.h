// A running host, spoken to byte by byte.
#pragma once

#include <string>

#include "tests/host/HostFixture.h"
#include "tests/support/Connection.h"

namespace tulo::test {

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
  const std::string fetch = R"({"op":"fetch","account":"primary","ulid":"none"})";
};

}  // namespace tulo::test
