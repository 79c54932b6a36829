#include "tests/support/FakeHost.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#ifdef __linux__
#include <linux/sockios.h>
#endif

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <mutex>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <utility>

namespace tulo::test {
namespace {

// Ends a script; never seen outside of this file.
struct Cut {};

[[noreturn]] void fail(const std::string& what) {
  throw std::system_error(errno, std::generic_category(), what);
}

class Descriptor {
 public:
  explicit Descriptor(int number) : number_(number) {}
  ~Descriptor() { reset(); }
  Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  Descriptor& operator=(Descriptor&&) = delete;

  int get() const { return number_; }
  int release() { return std::exchange(number_, -1); }
  void reset() {
    if (number_ != -1) ::close(std::exchange(number_, -1));
  }

 private:
  int number_;
};

Descriptor listeningSocket(const std::string& path, int backlog) {
  sockaddr_un address{};
  if (path.size() >= sizeof address.sun_path) throw std::invalid_argument("socket path: " + path);
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, path.size());
  Descriptor listener(::socket(AF_UNIX, SOCK_STREAM, 0));
  if (listener.get() == -1) fail("socket");
  // The cast is the socket interface's own.
  const auto* generic = reinterpret_cast<const sockaddr*>(&address);
  if (::bind(listener.get(), generic, sizeof address) != 0) fail("bind " + path);
  if (::listen(listener.get(), backlog) != 0) fail("listen " + path);
  return listener;
}

// How many bytes that were sent the peer has not taken yet.
int untaken(int descriptor) {
  int bytes = 0;
#ifdef __linux__
  if (::ioctl(descriptor, SIOCOUTQ, &bytes) != 0) fail("SIOCOUTQ");
#else
  socklen_t size = sizeof bytes;
  if (::getsockopt(descriptor, SOL_SOCKET, SO_NWRITE, &bytes, &size) != 0) fail("SO_NWRITE");
#endif
  return bytes;
}

// Reads are done in slices of this many milliseconds, so that the host's end is noticed.
constexpr int slice = 5;

}  // namespace

// Everything on one connection happens on its own thread, but for the records, which the test
// reads under the mutex.
class Connection : public FakeHost::Peer {
 public:
  Connection(Descriptor socket, FakeHost::Script script, const std::atomic<bool>& ending)
      : socket_(std::move(socket)), ending_(ending) {
    thread_ = std::thread([this, steps = std::move(script)] { run(steps); });
  }
  ~Connection() override { thread_.join(); }

  FakeHost::Exchange exchange() const {
    const std::scoped_lock lock(mutex_);
    return exchange_;
  }

  std::string readRequest() override {
    while (!hasRequest())
      readSome();
    char byte = 0;
    const bool ended = ::recv(socket_.get(), &byte, 1, MSG_PEEK | MSG_DONTWAIT) == 0;
    const std::scoped_lock lock(mutex_);
    exchange_.halfClosed = ended;
    return exchange_.received;
  }

  void send(std::string_view bytes) override {
    while (!bytes.empty()) {
      await(POLLOUT);
      const auto sent = ::send(socket_.get(), bytes.data(), bytes.size(), sendFlags);
      if (sent > 0) bytes.remove_prefix(static_cast<std::size_t>(sent));
      if (sent < 0 && errno != EAGAIN && errno != EINTR) throw Cut();
    }
  }

  void waitUntilTaken() override {
    while (untaken(socket_.get()) > 0)
      pause();
  }

  void wait(Gate& gate) override {
    while (!gate.isOpen())
      pause();
  }

  void hangUp() override { throw Cut(); }

 private:
#ifdef __linux__
  static constexpr int sendFlags = MSG_DONTWAIT | MSG_NOSIGNAL;
#else
  static constexpr int sendFlags = MSG_DONTWAIT;
#endif

  void run(const FakeHost::Script& script) {
    try {
      for (const FakeHost::Step& step : script)
        step(*this);
      while (true)
        readSome();
    } catch (const Cut&) {
      // The peer or the host is gone, or the script hung up.
    }
    socket_.reset();
    const std::scoped_lock lock(mutex_);
    exchange_.closed = true;
  }

  // A moment's wait that a closed peer or the end of the host cuts short.
  void pause() {
    pollfd gone{socket_.get(), 0, 0};
    ::poll(&gone, 1, 1);
    if (ending_ || (gone.revents & (POLLHUP | POLLERR)) != 0) throw Cut();
  }

  bool hasRequest() const {
    const std::scoped_lock lock(mutex_);
    return exchange_.received.find('\n') != std::string::npos;
  }

  void readSome() {
    await(POLLIN);
    char buffer[65536];
    const auto count = ::recv(socket_.get(), buffer, sizeof buffer, MSG_DONTWAIT);
    if (count < 0 && (errno == EAGAIN || errno == EINTR)) return;
    if (count <= 0) throw Cut();
    const std::scoped_lock lock(mutex_);
    exchange_.received.append(buffer, static_cast<std::size_t>(count));
  }

  void await(short events) {
    pollfd waiting{socket_.get(), events, 0};
    while (::poll(&waiting, 1, slice) <= 0)
      if (ending_) throw Cut();
  }

  Descriptor socket_;
  const std::atomic<bool>& ending_;
  mutable std::mutex mutex_;
  FakeHost::Exchange exchange_;
  std::thread thread_;
};

class FakeHost::Impl {
 public:
  explicit Impl(std::string path) : path_(std::move(path)), listener_(listeningSocket(path_, 64)) {
    thread_ = std::thread([this] { accept(); });
  }

  ~Impl() {
    ending_ = true;
    thread_.join();
    ::unlink(path_.c_str());
  }

  void then(Script script) {
    const std::scoped_lock lock(mutex_);
    scripts_.push_back(std::move(script));
  }

  std::vector<Exchange> exchanges() const {
    const std::scoped_lock lock(mutex_);
    std::vector<Exchange> all;
    for (const auto& connection : connections_)
      all.push_back(connection->exchange());
    return all;
  }

 private:
  void accept() {
    while (!ending_) {
      pollfd waiting{listener_.get(), POLLIN, 0};
      if (::poll(&waiting, 1, slice) <= 0) continue;
      Descriptor socket(::accept(listener_.get(), nullptr, nullptr));
      if (socket.get() == -1) continue;
      const std::scoped_lock lock(mutex_);
      connections_.push_back(
          std::make_unique<Connection>(std::move(socket), nextScript(), ending_));
    }
  }

  // Under the mutex. A host without a script is a silent one.
  Script nextScript() const {
    if (scripts_.empty()) return staysSilent();
    return scripts_[std::min(connections_.size(), scripts_.size() - 1)];
  }

  const std::string path_;
  std::atomic<bool> ending_ = false;
  mutable std::mutex mutex_;
  std::vector<Script> scripts_;
  Descriptor listener_;
  std::vector<std::unique_ptr<Connection>> connections_;
  std::thread thread_;
};

FakeHost::FakeHost(const std::string& socketPath) : impl_(std::make_unique<Impl>(socketPath)) {
  // As every process of the project does at its entry: a peer that writes to a closed connection
  // gets an error.
  std::signal(SIGPIPE, SIG_IGN);
}

FakeHost::~FakeHost() = default;

FakeHost& FakeHost::then(Script script) {
  impl_->then(std::move(script));
  return *this;
}

std::vector<FakeHost::Exchange> FakeHost::exchanges() const {
  return impl_->exchanges();
}

std::vector<std::string> FakeHost::requests() const {
  std::vector<std::string> all;
  for (const Exchange& exchange : exchanges())
    if (const auto end = exchange.received.find('\n'); end != std::string::npos)
      all.push_back(exchange.received.substr(0, end));
  return all;
}

bool FakeHost::waitForRequests(std::size_t count) const {
  return eventually([&] { return requests().size() >= count; });
}

bool FakeHost::waitUntilClosed(std::size_t count) const {
  return eventually([&] {
    const auto all = exchanges();
    return all.size() >= count &&
           std::ranges::all_of(all, [](const Exchange& exchange) { return exchange.closed; });
  });
}

namespace {

void readRequest(FakeHost::Peer& peer) {
  peer.readRequest();
}

FakeHost::Step sending(std::string bytes) {
  return [bytes = std::move(bytes)](FakeHost::Peer& peer) { peer.send(bytes); };
}

void hangUp(FakeHost::Peer& peer) {
  peer.hangUp();
}

}  // namespace

FakeHost::Script replies(std::string json) {
  return {readRequest, sending(std::move(json) + "\n")};
}

FakeHost::Script repliesRaw(std::string bytes) {
  return {readRequest, sending(std::move(bytes))};
}

FakeHost::Script repliesAndHangsUp(std::string bytes) {
  return {readRequest, sending(std::move(bytes)), hangUp};
}

FakeHost::Script repliesInPieces(std::string bytes, std::vector<std::size_t> sizes) {
  FakeHost::Script script{readRequest};
  for (const std::size_t size : sizes) {
    script.push_back(sending(bytes.substr(0, size)));
    script.push_back([](FakeHost::Peer& peer) { peer.waitUntilTaken(); });
    bytes.erase(0, size);
  }
  script.push_back(sending(std::move(bytes)));
  return script;
}

FakeHost::Script repliesAfter(Gate& gate, std::string json) {
  return {readRequest, [&gate](FakeHost::Peer& peer) { peer.wait(gate); },
          sending(std::move(json) + "\n")};
}

FakeHost::Script repliesWith(std::function<std::string(const std::string& request)> function) {
  return {[function = std::move(function)](FakeHost::Peer& peer) {
    peer.send(function(peer.readRequest()) + "\n");
  }};
}

FakeHost::Script hangsUp() {
  return {readRequest, hangUp};
}

FakeHost::Script staysSilent() {
  return {readRequest};
}

FakeHost::Script readsNothing() {
  return {[](FakeHost::Peer& peer) {
    Gate never;
    peer.wait(never);
  }};
}

FakeHost::Script hangsUpWithoutReading() {
  return {hangUp};
}

DeafHost::DeafHost(const std::string& socketPath, int backlog)
    : descriptor_(listeningSocket(socketPath, backlog).release()), path_(socketPath) {}

DeafHost::~DeafHost() {
  ::close(descriptor_);
  ::unlink(path_.c_str());
}

void leaveStaleSocket(const std::string& socketPath) {
  listeningSocket(socketPath, 1).reset();
}

}  // namespace tulo::test
