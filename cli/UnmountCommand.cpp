#include "cli/UnmountCommand.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "cli/PlainText.h"
#include "cli/ServiceClient.h"
#include "service/base/ServicePaths.h"
#include "service/control/Replies.h"
#include "service/mount/MountPoint.h"

namespace tulo::cli {

namespace {

constexpr const char* kHelp =
    R"(Ends the service of a mount and takes the mount away.

A mount that programs use stays, and they are named; the exit status is 1. Changes that were not sent
yet are kept, and are sent after the next mount. What a service that was killed has left behind is
cleared away.)";

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

struct Arguments {
  std::string mountPoint;
  bool lazily = false;
  bool byForce = false;

  control::UnmountRequest request() const {
    if (lazily) return {control::Leaving::lazily};
    return {byForce ? control::Leaving::byForce : control::Leaving::ifUnused};
  }
};

void print(std::FILE* stream, const std::vector<control::UsingProgram>& programs) {
  for (const control::UsingProgram& program : programs) {
    std::fprintf(stream, "  %s (process %lld): %s\n", printable(program.name).c_str(),
                 static_cast<long long>(program.process), printable(program.path).c_str());
  }
}

int refuse(const control::UnmountReply& reply) {
  std::fprintf(stderr, "tulo: %s\n", printable(reply.outcome.error.value_or("refused")).c_str());
  print(stderr, reply.programs);
  if (reply.programs.empty()) {
    std::fprintf(stderr,
                 "  by a program that this user may not look at, or something is mounted in it\n");
  }
  std::fprintf(stderr,
               "  End what uses it, or see what --lazy and --force do (tulo unmount --help).\n");
  return 1;
}

void tellLeftBehind(const Arguments& arguments, const control::UnmountReply& reply) {
  if (reply.goesOn) {
    std::printf("gone from its place; the service goes on until these are done with it\n");
    print(stdout, reply.programs);
  } else if (arguments.byForce && !reply.programs.empty()) {
    std::printf("cut off:\n");
    print(stdout, reply.programs);
  }
  if (reply.notWritten) {
    std::fprintf(stderr, "tulo: what they wrote last may not have been handed over\n");
  }
}

void tellUnsent(const control::UnmountReply& reply) {
  if (reply.left.pending > 0) {
    std::printf("%s not sent yet; kept here, and sent after the next mount\n",
                counted(reply.left.pending, "change").c_str());
  }
  if (reply.left.needsAttention > 0) {
    std::printf("%s that the host refused; kept here\n",
                counted(reply.left.needsAttention, "change").c_str());
  }
}

int unmount(const Arguments& arguments) {
  if (MountPoint(arguments.mountPoint).clearStale()) return 0;
  const std::string domain = domainOfPath(arguments.mountPoint);
  // Whoever stands in the mount uses it.
  if (::chdir("/") != 0) throw ServiceError("cannot enter /");
  const auto reply = askDomain(domain, control::Operation::unmount, arguments.request())
                         .get<control::UnmountReply>();
  if (!reply.outcome.ok) return refuse(reply);
  tellLeftBehind(arguments, reply);
  tellUnsent(reply);
  std::fflush(stdout);
  if (reply.goesOn) return 0;
  if (waitForEnd(domain)) return reply.notWritten ? 1 : 0;
  std::fprintf(stderr, "tulo: the service of %s has not ended yet\n", arguments.mountPoint.c_str());
  return 1;
}

}  // namespace

void addUnmountCommand(CLI::App& app, int& exitStatus) {
  auto arguments = std::make_shared<Arguments>();
  CLI::App* command = app.add_subcommand("unmount", kHelp);
  command->add_option("MOUNTPOINT", arguments->mountPoint, "Where the account is mounted")
      ->required()
      ->type_name("DIR");
  CLI::Option* lazily = command->add_flag("--lazy,-l", arguments->lazily,
                                          "Take it from its place at once; programs go on with "
                                          "what they have open, and the service ends "
                                          "after the last of them");
  command
      ->add_flag(
          "--force,-f", arguments->byForce,
          "End at once; programs that have something open get errors, and what they write from "
          "then on is lost")
      ->excludes(lazily);
  command->callback([arguments, &exitStatus] { exitStatus = unmount(*arguments); });
}

}  // namespace tulo::cli
