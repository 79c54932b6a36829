#include "cli/demo/ServedAccount.h"

#include <sys/socket.h>

#include <chrono>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "platform/linux/FileDescriptor.h"
#include "platform/linux/SocketAddress.h"
#include "service/base/ContainerFiles.h"

namespace tulo::cli::demo {
namespace {

constexpr std::chrono::minutes startPatience{1};
constexpr std::chrono::milliseconds pollInterval{10};
constexpr std::chrono::seconds stopPatience{20};
constexpr std::chrono::seconds commandPatience{60};

// Whether somebody listens on the socket.
bool answers(const std::filesystem::path& socketPath) {
  const auto address = SocketAddress::of(socketPath);
  if (!address) {
    throw std::runtime_error("the path of the socket is too long: " + socketPath.string() +
                             "; set TMPDIR to a folder with a shorter path");
  }
  const FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  return socket && address->connect(socket.get()) == 0;
}

}  // namespace

ServedAccount::ServedAccount()
    : temporary_("tulo-demo"),
      folder_(temporary_.path() / "account"),
      container_(temporary_.path() / "container"),
      desk_(temporary_.path() / "desk"),
      log_(temporary_.path() / "host.log") {
  for (const auto& folder : {folder_, container_, desk_})
    std::filesystem::create_directory(folder);
}

std::vector<std::string> ServedAccount::hostArguments() const {
  return {"host", "serve", "--root", folder_, "--container", container_};
}

std::filesystem::path ServedAccount::socket() const {
  return container::hostSocket(container_);
}

std::string ServedAccount::hostCommandLine() const {
  std::string line = "tulo";
  for (const std::string& word : hostArguments())
    line += " " + word;
  return line;
}

void ServedAccount::startHost(const std::function<void()>& whileWaiting) {
  auto host = std::make_unique<ChildProcess>(ownExecutable(), hostArguments(), log_);
  {
    const MutexLock lock(mutex_);
    host_ = std::move(host);
  }
  const auto end = std::chrono::steady_clock::now() + startPatience;
  while (!answers(socket())) {
    whileWaiting();
    if (const auto status = host_->waitForEnd(pollInterval)) {
      throw std::runtime_error("the host ended with status " + std::to_string(*status) + logTail());
    }
    if (std::chrono::steady_clock::now() > end) {
      throw std::runtime_error("the host does not answer" + logTail());
    }
  }
}

void ServedAccount::stopHost() {
  host_->terminate();
  const auto status = host_->waitForEnd(stopPatience);
  if (!status) throw std::runtime_error("the host does not end" + logTail());
  if (*status != 0) {
    throw std::runtime_error("the host ended with status " + std::to_string(*status) + logTail());
  }
}

void ServedAccount::hostCommand(const std::string& name,
                                const std::vector<std::string>& arguments) {
  std::vector<std::string> words{"host", name};
  words.insert(words.end(), arguments.begin(), arguments.end());
  words.insert(words.end(), {"--container", container_});
  ChildProcess command(ownExecutable(), words, log_);
  const auto status = command.waitForEnd(commandPatience);
  if (!status || *status != 0) {
    throw std::runtime_error("\"tulo host " + name + "\" failed" + logTail());
  }
}

void ServedAccount::interrupt() {
  const MutexLock lock(mutex_);
  if (host_) host_->terminate();
}

std::string ServedAccount::logTail() const {
  constexpr std::size_t longest = 2000;
  std::ifstream stream(log_);
  std::ostringstream text;
  text << stream.rdbuf();
  const std::string log = text.str();
  if (log.empty()) return "; it wrote nothing to its log";
  return "; its log ends:\n" + (log.size() > longest ? log.substr(log.size() - longest) : log);
}

}  // namespace tulo::cli::demo
