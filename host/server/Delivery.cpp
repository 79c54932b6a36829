#include "host/server/Delivery.h"

#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <string_view>

namespace tulo::host {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int pollTime = static_cast<int>(stopCheck.count());

bool waitUntilWritable(int connection, std::chrono::milliseconds patience, StopSignal& stop) {
  pollfd writable{connection, POLLOUT, 0};
  const auto deadline = Clock::now() + patience;
  while (::poll(&writable, 1, pollTime) <= 0) {
    if (stop.isRaised() || Clock::now() > deadline) return false;
  }
  return true;
}

void send(int connection, std::string_view line, std::chrono::milliseconds patience,
          StopSignal& stop) {
  while (!line.empty()) {
    const ssize_t count = ::send(connection, line.data(), line.size(), MSG_NOSIGNAL);
    if (count > 0) line.remove_prefix(static_cast<std::size_t>(count));
    if (count > 0 || (count < 0 && errno == EINTR)) continue;
    if (count < 0 && errno != EAGAIN) return;
    if (!waitUntilWritable(connection, patience, stop)) return;
  }
}

void waitForHangUp(int connection, StopSignal& stop) {
  pollfd peer{connection, POLLRDHUP, 0};
  while (!stop.isRaised() && ::poll(&peer, 1, pollTime) <= 0) {
  }
}

}  // namespace

void deliver(int connection, const Answer& answer, std::chrono::milliseconds patience,
             StopSignal& stop) {
  if (answer.manner == Answer::Manner::silence) waitForHangUp(connection, stop);
  if (answer.manner == Answer::Manner::reply) send(connection, answer.line, patience, stop);
}

}  // namespace tulo::host
