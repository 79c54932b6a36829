#include "host/server/IncomingRequest.h"

#include <sys/socket.h>

#include <array>
#include <cerrno>

#include "host/server/RequestParser.h"

namespace tulo::host {

namespace {

// What a peer may still send of a request that is too long before the connection is cut.
constexpr std::size_t mostDiscarded = std::size_t{64} << 20;

}  // namespace

IncomingRequest::IncomingRequest(FileDescriptor connection, Clock::time_point deadline)
    : connection_(std::move(connection)), deadline_(deadline) {}

IncomingRequest::State IncomingRequest::receive() {
  std::array<char, 16384> buffer;
  while (true) {
    const ssize_t count = ::recv(connection_.get(), buffer.data(), buffer.size(), 0);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return errno == EAGAIN ? State::incomplete : State::over;
    text_.append(buffer.data(), static_cast<std::size_t>(count));
    if (isWhole(count == 0)) return State::whole;
    if (count == 0 || discarded_ > mostDiscarded) return State::over;
  }
}

// Cuts the request at its line feed. One that is too long is read on to its end without being kept,
// since a peer that is still writing would not see the reply.
bool IncomingRequest::isWhole(bool atEnd) {
  const auto lineFeed = text_.find('\n');
  const bool isWhole = lineFeed != std::string::npos || (atEnd && !text_.empty());
  if (isWhole) {
    const bool isTooLong = discarded_ > 0;
    if (isTooLong) text_.assign(maximumRequestSize + 1, ' ');
    if (!isTooLong && lineFeed != std::string::npos) text_.resize(lineFeed);
  } else if (text_.size() > maximumRequestSize) {
    discarded_ += text_.size();
    text_.clear();
  }
  return isWhole;
}

}  // namespace tulo::host
