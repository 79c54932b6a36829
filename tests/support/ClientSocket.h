// A look at the extension's end of a connection, which is in the same process as the test.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace tulo::test {

// Time-outs of a socket in microseconds; 0 means none.
struct SocketTimeouts {
  std::int64_t receive = 0;
  std::int64_t send = 0;

  bool operator==(const SocketTimeouts&) const = default;
};

// Those of the first socket of this process that is connected to a listener at the path; nothing
// when there is no such socket.
std::optional<SocketTimeouts> timeoutsOfClientOf(const std::string& socketPath);

}  // namespace tulo::test
