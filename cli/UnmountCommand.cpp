#include "cli/UnmountCommand.h"

#include <fcntl.h>
#include <sys/file.h>

#include <chrono>
#include <cstdio>
#include <memory>
#include <string>
#include <thread>

#include "cli/PlainText.h"
#include "cli/ServiceClient.h"
#include "service/base/ServicePaths.h"
#include "service/control/Replies.h"
#include "service/mount/MountPoint.h"

namespace tulo::cli {

namespace {

constexpr const char* kHelp =
    R"(Ends the service of a mount and takes the mount away.

Changes that were not sent yet stay, and are sent after the next mount. What a service that was
killed has left behind is cleared away.)";

constexpr std::chrono::seconds kPatience{30};

// The service lets go of its lock when the mount is gone and everything is written down.
bool waitForEnd(const std::string& domain) {
  const std::string path = paths::stateDirectory(domain) + "/lock";
  const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  const auto end = std::chrono::steady_clock::now() + kPatience;
  while (file && ::flock(file.get(), LOCK_SH | LOCK_NB) != 0) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

int unmount(const std::string& mountPoint) {
  if (MountPoint(mountPoint).clearStale()) return 0;
  const std::string domain = domainOfPath(mountPoint);
  const auto reply = askDomain(domain, control::Operation::unmount).get<control::UnmountReply>();
  if (!reply.outcome.ok) return 1;
  if (reply.left.pending > 0) {
    std::printf("%s not sent yet; kept here, and sent after the next mount\n",
                counted(reply.left.pending, "change").c_str());
  }
  if (reply.left.needsAttention > 0) {
    std::printf("%s that the host refused; kept here\n",
                counted(reply.left.needsAttention, "change").c_str());
  }
  std::fflush(stdout);
  if (waitForEnd(domain)) return 0;
  std::fprintf(stderr, "tulo: the service of %s has not ended yet\n", mountPoint.c_str());
  return 1;
}

}  // namespace

void addUnmountCommand(CLI::App& app, int& exitStatus) {
  auto mountPoint = std::make_shared<std::string>();
  CLI::App* command = app.add_subcommand("unmount", kHelp);
  command->add_option("MOUNTPOINT", *mountPoint, "Where the account is mounted")
      ->required()
      ->type_name("DIR");
  command->callback([mountPoint, &exitStatus] { exitStatus = unmount(*mountPoint); });
}

}  // namespace tulo::cli
