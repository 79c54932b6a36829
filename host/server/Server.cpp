#include "host/server/Server.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <utility>
#include <vector>

#include "host/base/HostError.h"
#include "host/server/Delivery.h"

namespace tulo::host {

using std::chrono::milliseconds;

Server::Server(const Container& container, const HostLog& log, Limits limits, Handler handler)
    : limits_(limits),
      handler_(std::move(handler)),
      socket_(container, log),
      workers_(limits.workers, [this](const Workers::Job& job) {
        deliver(job.connection.get(), handler_(job.request), limits_.patience, stop_);
      }) {}

Server::~Server() {
  stop();
}

void Server::start() {
  wake_.reset(::eventfd(0, EFD_CLOEXEC));
  if (!wake_) throw StartError("the server cannot be made: " + errorText(errno));
  socket_.open();
  thread_ = std::thread([this] { run(); });
}

void Server::stop() {
  if (!thread_.joinable()) return;
  socket_.remove();
  stop_.raise();
  const std::uint64_t one = 1;
  static_cast<void>(!::write(wake_.get(), &one, sizeof one));
  thread_.join();
  workers_.stop();
  incoming_.clear();
  socket_.close();
}

void Server::run() {
  std::vector<pollfd> waiting;
  while (!stop_.isRaised()) {
    const bool isFull = workers_.load() + incoming_.size() >= limits_.connections;
    waiting.clear();
    waiting.push_back({wake_.get(), POLLIN, 0});
    // Whoever comes when all places are taken waits in the socket's own queue.
    waiting.push_back({isFull ? -1 : socket_.descriptor(), POLLIN, 0});
    for (const IncomingRequest& incoming : incoming_)
      waiting.push_back({incoming.descriptor(), POLLIN, 0});
    ::poll(waiting.data(), waiting.size(), static_cast<int>(waitTime(isFull).count()));
    const auto now = Clock::now();
    auto ready = waiting.begin() + 2;
    for (auto incoming = incoming_.begin(); incoming != incoming_.end(); ++ready) {
      const bool isDone =
          (ready->revents != 0 && receive(*incoming)) || incoming->deadline() <= now;
      incoming = isDone ? incoming_.erase(incoming) : std::next(incoming);
    }
    if (waiting[1].revents != 0) acceptOne();
  }
}

// Negative where there is nothing to wait for but peers.
milliseconds Server::waitTime(bool isFull) const {
  if (isFull) return stopCheck;
  if (incoming_.empty()) return milliseconds(-1);
  auto first = incoming_.front().deadline();
  for (const IncomingRequest& incoming : incoming_)
    first = std::min(first, incoming.deadline());
  constexpr milliseconds roundedUp{1};
  const auto left = std::chrono::duration_cast<milliseconds>(first - Clock::now()) + roundedUp;
  return std::clamp(left, milliseconds(0), limits_.patience + roundedUp);
}

void Server::acceptOne() {
  auto connection = socket_.accept();
  if (!connection) {
    // Out of descriptors: the peer waits, and trying again at once would only burn time.
    stop_.wait(stopCheck);
  } else if (*connection) {
    incoming_.emplace_back(*std::move(connection), Clock::now() + limits_.patience);
  }
}

bool Server::receive(IncomingRequest& incoming) {
  const IncomingRequest::State state = incoming.receive();
  if (state == IncomingRequest::State::whole) {
    workers_.add({incoming.takeConnection(), incoming.takeText()});
  }
  return state != IncomingRequest::State::incomplete;
}

}  // namespace tulo::host
