#include "host/server/Server.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>

#include "host/account/Request.h"
#include "host/base/HostError.h"
#include "host/server/Reply.h"

namespace tulo::host {

namespace {

using std::chrono::milliseconds;

// The extension can connect to no longer path.
constexpr std::size_t longestPath = 103;
// What a peer may still send of a request that is too long before the connection is cut.
constexpr std::size_t mostDiscarded = std::size_t{64} << 20;
constexpr milliseconds stopCheck{100};

sockaddr_un addressOf(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path.data(), path.size());
  return address;
}

}  // namespace

Server::Server(const Container& container, const HostLog& log, Limits limits, Handler handler)
    : container_(container), log_(log), limits_(limits), handler_(std::move(handler)) {}

Server::~Server() {
  stop();
}

void Server::removeStaleSocket() {
  struct stat info;
  const int folder = container_.folder();
  if (::fstatat(folder, Container::socketName, &info, AT_SYMLINK_NOFOLLOW) != 0) return;
  const std::string path = container_.pathOf(Container::socketName);
  // The container's lock is ours: whoever made this socket is gone.
  if (!S_ISSOCK(info.st_mode)) throw StartError(path + " is in the way: it is not a socket");
  if (::unlinkat(folder, Container::socketName, 0) != 0) {
    throw StartError(path + " cannot be replaced: " + errorText(errno));
  }
  log_.info("replacing the socket that a host has left behind");
}

void Server::start() {
  const std::string path = container_.pathOf(Container::socketName);
  if (path.size() > longestPath) {
    throw StartError("the socket's path " + path + " has " + std::to_string(path.size()) +
                     " bytes, more than " + std::to_string(longestPath) +
                     "; choose a container with a shorter path");
  }
  removeStaleSocket();
  listener_.reset(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  wake_.reset(::eventfd(0, EFD_CLOEXEC));
  const sockaddr_un address = addressOf(path);
  // The mode is set before the name exists, and once more for systems that ignore the first.
  if (!listener_ || !wake_ || ::fchmod(listener_.get(), 0600) != 0 ||
      ::bind(listener_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      ::fchmodat(container_.folder(), Container::socketName, 0600, 0) != 0 ||
      ::listen(listener_.get(), SOMAXCONN) != 0) {
    throw StartError("the socket " + path + " cannot be made: " + errorText(errno));
  }
  thread_ = std::thread([this] { run(); });
}

void Server::stop() {
  if (!thread_.joinable()) return;
  ::unlinkat(container_.folder(), Container::socketName, 0);
  stop_.raise();
  const std::uint64_t one = 1;
  static_cast<void>(!::write(wake_.get(), &one, sizeof one));
  thread_.join();
  {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  jobsChanged_.notify_all();
  for (std::thread& worker : workers_)
    worker.join();
  workers_.clear();
  jobs_.clear();
  incoming_.clear();
  listener_.reset();
}

void Server::run() {
  std::vector<pollfd> waiting;
  while (!stop_.isRaised()) {
    bool isFull = false;
    {
      const std::lock_guard lock(mutex_);
      isFull = activeConnections_ + incoming_.size() >= limits_.connections;
    }
    waiting.clear();
    waiting.push_back({wake_.get(), POLLIN, 0});
    // Whoever comes when all places are taken waits in the socket's own queue.
    waiting.push_back({isFull ? -1 : listener_.get(), POLLIN, 0});
    for (const Incoming& connection : incoming_) {
      waiting.push_back({connection.fd.get(), POLLIN, 0});
    }
    ::poll(waiting.data(), waiting.size(),
           isFull ? static_cast<int>(stopCheck.count()) : waitTime());
    const auto now = Clock::now();
    std::size_t index = 2;
    for (auto connection = incoming_.begin(); connection != incoming_.end(); ++index) {
      const bool isDone =
          (waiting[index].revents != 0 && receive(*connection)) || connection->deadline <= now;
      connection = isDone ? incoming_.erase(connection) : std::next(connection);
    }
    if (waiting[1].revents != 0) acceptAll();
  }
}

int Server::waitTime() const {
  if (incoming_.empty()) return -1;
  auto first = incoming_.front().deadline;
  for (const Incoming& connection : incoming_)
    first = std::min(first, connection.deadline);
  const auto left = std::chrono::duration_cast<milliseconds>(first - Clock::now()).count() + 1;
  return static_cast<int>(std::clamp<std::int64_t>(left, 0, limits_.patience.count() + 1));
}

void Server::acceptAll() {
  constexpr int connectionFlags = SOCK_CLOEXEC | SOCK_NONBLOCK;
  FileDescriptor fd(::accept4(listener_.get(), nullptr, nullptr, connectionFlags));
  if (!fd) {
    // Out of descriptors: the peer waits, and trying again at once would only burn time.
    if (errno == EMFILE || errno == ENFILE) stop_.wait(stopCheck);
    return;
  }
  if (!isWelcome(fd.get())) return;
  Incoming connection;
  connection.fd = std::move(fd);
  connection.deadline = Clock::now() + limits_.patience;
  incoming_.push_back(std::move(connection));
}

bool Server::isWelcome(int fd) const {
  ucred peer{};
  socklen_t size = sizeof peer;
  if (::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) return false;
  if (peer.uid == ::geteuid() || peer.uid == 0) return true;
  log_.error("refused a connection of user " + std::to_string(peer.uid));
  return false;
}

bool Server::receive(Incoming& connection) {
  std::array<char, 16384> buffer;
  while (true) {
    const ssize_t count = ::recv(connection.fd.get(), buffer.data(), buffer.size(), 0);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0 && errno == EAGAIN) return false;
    if (count < 0) return true;
    connection.request.append(buffer.data(), static_cast<std::size_t>(count));
    if (hasWholeRequest(connection, count == 0)) {
      enqueue(connection);
      return true;
    }
    if (count == 0 || connection.discarded > mostDiscarded) return true;
  }
}

// Cuts the request at its line feed. One that is too long is read on to its end without being kept,
// since a peer that is still writing would not see the reply.
bool Server::hasWholeRequest(Incoming& connection, bool atEnd) {
  std::string& request = connection.request;
  const auto lineFeed = request.find('\n');
  const bool isWhole = lineFeed != std::string::npos || (atEnd && !request.empty());
  if (isWhole) {
    const bool isTooLong = connection.discarded > 0;
    if (isTooLong) request.assign(maximumRequestSize + 1, ' ');
    if (!isTooLong && lineFeed != std::string::npos) request.resize(lineFeed);
  } else if (request.size() > maximumRequestSize) {
    connection.discarded += request.size();
    request.clear();
  }
  return isWhole;
}

void Server::enqueue(Incoming& connection) {
  const std::lock_guard lock(mutex_);
  jobs_.push_back({std::move(connection.fd), std::move(connection.request)});
  ++activeConnections_;
  if (idleWorkers_ < jobs_.size() && workers_.size() < limits_.workers) {
    workers_.emplace_back([this] { work(); });
  }
  jobsChanged_.notify_one();
}

void Server::work() {
  std::unique_lock lock(mutex_);
  while (true) {
    ++idleWorkers_;
    jobsChanged_.wait(lock, [this] { return stopping_ || !jobs_.empty(); });
    --idleWorkers_;
    if (stopping_) return;
    Job job = std::move(jobs_.front());
    jobs_.pop_front();
    lock.unlock();
    serve(std::move(job));
    lock.lock();
    --activeConnections_;
  }
}

void Server::serve(Job job) {
  const Answer answer = handler_(job.request);
  if (answer.manner == Answer::Manner::silence) waitForHangUp(job.fd.get());
  if (answer.manner == Answer::Manner::reply) send(job.fd.get(), answer.line);
}

void Server::send(int fd, std::string_view line) {
  while (!line.empty()) {
    const ssize_t count = ::send(fd, line.data(), line.size(), MSG_NOSIGNAL);
    if (count > 0) line.remove_prefix(static_cast<std::size_t>(count));
    if (count > 0 || (count < 0 && errno == EINTR)) continue;
    if (count < 0 && errno != EAGAIN) return;
    pollfd writable{fd, POLLOUT, 0};
    const auto deadline = Clock::now() + limits_.patience;
    while (::poll(&writable, 1, static_cast<int>(stopCheck.count())) <= 0) {
      if (stop_.isRaised() || Clock::now() > deadline) return;
    }
  }
}

void Server::waitForHangUp(int fd) {
  pollfd peer{fd, POLLRDHUP, 0};
  while (!stop_.isRaised() && ::poll(&peer, 1, static_cast<int>(stopCheck.count())) <= 0) {
  }
}

}  // namespace tulo::host
