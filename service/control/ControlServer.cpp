#include "service/control/ControlServer.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <utility>
#include <vector>

#include "service/base/ServiceLog.h"
#include "service/base/ServicePaths.h"
#include "service/control/ControlSocket.h"

namespace tulo {

namespace {

constexpr std::size_t kConnections = 64;
constexpr std::size_t kLongestRequest = 16 << 20;
constexpr int kPause = 100;  // milliseconds, before a descriptor is asked for again

bool sameUser(int descriptor) {
  ucred peer = {};
  socklen_t size = sizeof peer;
  return ::getsockopt(descriptor, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 &&
         (peer.uid == ::getuid() || peer.uid == 0);
}

bool isListenedOn(const SocketAddress& address) {
  const FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  return address.connect(socket.get()) == 0 || errno == EAGAIN;
}

}  // namespace

ControlServer::ControlServer(const std::string& path, Handler handler)
    : path_(path),
      handler_(std::move(handler)),
      listener_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)),
      wake_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  const SocketAddress address = control::addressOf(path_);
  paths::createPrivateDirectory(path_.substr(0, path_.rfind('/')));
  // The domain's lock is held, so whoever bound it before is gone; but a service whose state lies
  // elsewhere has another lock.
  if (isListenedOn(address)) throw ServiceError("another service listens on " + path_);
  ::unlink(path_.c_str());
  const mode_t mask = ::umask(0177);
  const int result = address.bind(listener_.get());
  ::umask(mask);
  if (result != 0 || ::listen(listener_.get(), 16) != 0) {
    throw ServiceError("cannot listen on " + path_ + ": " + std::strerror(errno));
  }
}

ControlServer::~ControlServer() {
  stop();
  ::unlink(path_.c_str());
}

void ControlServer::start() {
  acceptor_ = std::thread([this] { accept(); });
}

void ControlServer::stop() {
  if (!acceptor_.joinable()) return;
  const std::uint64_t one = 1;
  if (::write(wake_.get(), &one, sizeof one) < 0) return;
  acceptor_.join();
  std::vector<std::thread> threads;
  {
    MutexLock lock(mutex_);
    for (auto& [number, connection] : connections_) {
      if (!connection.ended) ::shutdown(connection.descriptor, SHUT_RDWR);
      threads.push_back(std::move(connection.thread));
    }
  }
  // Each takes the lock in the end.
  for (std::thread& thread : threads)
    thread.join();
  MutexLock lock(mutex_);
  connections_.clear();
}

void ControlServer::joinEnded() {
  MutexLock lock(mutex_);
  for (auto at = connections_.begin(); at != connections_.end();) {
    if (at->second.ended) {
      at->second.thread.join();
      at = connections_.erase(at);
    } else {
      ++at;
    }
  }
}

void ControlServer::accept() {
  for (;;) {
    std::array<pollfd, 2> waits = {{{wake_.get(), POLLIN, 0}, {listener_.get(), POLLIN, 0}}};
    ::poll(waits.data(), waits.size(), -1);
    if (waits[0].revents != 0) return;
    FileDescriptor descriptor(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
    // It stays waiting, and would be asked for over and over.
    if (!descriptor && (errno == EMFILE || errno == ENFILE)) ::poll(waits.data(), 1, kPause);
    joinEnded();
    if (descriptor && sameUser(descriptor.get())) welcome(std::move(descriptor));
  }
}

void ControlServer::welcome(FileDescriptor descriptor) {
  MutexLock lock(mutex_);
  if (connections_.size() >= kConnections) return;
  const std::size_t number = nextConnection_++;
  Connection& connection = connections_[number];
  connection.descriptor = descriptor.release();
  connection.thread =
      std::thread([this, number, raw = connection.descriptor] { serve(number, raw); });
}

void ControlServer::serve(std::size_t number, int raw) {
  FileDescriptor descriptor(raw);
  control::LineReader reader(descriptor.get(), kLongestRequest);
  std::string request;
  try {
    while (reader.next(request)) {
      handler_(request, [&](const std::string& line) {
        return control::sendAll(descriptor.get(), line + '\n');
      });
    }
  } catch (const std::exception& error) {
    serviceLog().error("control request failed: %{public}@", {error.what()});
  }
  MutexLock lock(mutex_);
  // Closed under the lock: stop() must not shut down a number that is somebody else's by then.
  descriptor.reset();
  connections_[number].ended = true;
}

}  // namespace tulo
