#include "cli/demo/MountedAccount.h"

#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace tulo::cli::demo {
namespace {

constexpr std::chrono::minutes startPatience{1};
constexpr std::chrono::milliseconds pollInterval{10};
constexpr std::chrono::seconds stopPatience{20};

// A mount is another file system than the folder that it is mounted in.
bool isMounted(const std::filesystem::path& folder) {
  struct stat inside = {};
  struct stat outside = {};
  return ::stat(folder.c_str(), &inside) == 0 &&
         ::stat(folder.parent_path().c_str(), &outside) == 0 && inside.st_dev != outside.st_dev;
}

}  // namespace

bool MountedAccount::isPossible() {
  return ::access("/dev/fuse", R_OK | W_OK) == 0;
}

std::string MountedAccount::environment() const {
  const std::string base = temporary_.path();
  return "XDG_STATE_HOME=" + base + "/state XDG_RUNTIME_DIR=" + base + "/run";
}

MountedAccount::MountedAccount(const std::filesystem::path& container,
                               const std::function<void()>& whileWaiting)
    : temporary_("tulo-mount"),
      folder_(temporary_.path() / "Tulo"),
      log_(temporary_.path() / "service.log") {
  for (const char* name : {"state", "run", "Tulo"}) {
    std::filesystem::create_directory(temporary_.path() / name);
  }
  const std::string base = temporary_.path();
  service_ = std::make_unique<ChildProcess>(
      "/usr/bin/env",
      std::vector<std::string>{
          "XDG_STATE_HOME=" + base + "/state", "XDG_RUNTIME_DIR=" + base + "/run", ownExecutable(),
          "mount", "--foreground", "--no-thumbnails", "--container", container, folder_},
      log_);
  const auto end = std::chrono::steady_clock::now() + startPatience;
  while (!isMounted(folder_)) {
    whileWaiting();
    if (const auto status = service_->waitForEnd(pollInterval)) {
      throw std::runtime_error("the service ended with status " + std::to_string(*status) +
                               logTail());
    }
    if (std::chrono::steady_clock::now() > end) {
      throw std::runtime_error("the mount does not answer" + logTail());
    }
  }
}

std::string MountedAccount::logTail() const {
  std::ifstream file(log_);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str().empty() ? std::string() : "; it said:\n" + text.str();
}

void MountedAccount::unmount() {
  service_->terminate();
  const auto status = service_->waitForEnd(stopPatience);
  if (!status || *status != 0) throw std::runtime_error("the service did not end well" + logTail());
}

void MountedAccount::interrupt() {
  service_->terminate();
}

}  // namespace tulo::cli::demo
