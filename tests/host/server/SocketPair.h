// Two ends of one connection.
#pragma once

#include <sys/socket.h>

#include <array>
#include <system_error>

#include "platform/linux/FileDescriptor.h"

namespace tulo::test {

struct SocketPair {
  SocketPair() {
    std::array<int, 2> ends{};
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) {
      throw std::system_error(errno, std::generic_category(), "socketpair");
    }
    ours.reset(ends[0]);
    theirs.reset(ends[1]);
  }

  FileDescriptor ours;
  FileDescriptor theirs;
};

}  // namespace tulo::test
