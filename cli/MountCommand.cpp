#include "cli/MountCommand.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>

#include "cli/Sizes.h"
#include "extension/FileProviderExtension.h"
#include "index/Index.h"
#include "platform/linux/Container.h"
#include "platform/linux/DescriptorLimit.h"
#include "platform/linux/LogSink.h"
#include "service/Service.h"
#include "service/base/ContainerFiles.h"
#include "service/listing/IndexProbe.h"

namespace tulo::cli {

namespace {

constexpr const char* kMountHelp =
    R"(Shows an account as an ordinary folder.

The command returns when the mount answers and leaves the service running; `tulo unmount` ends it.
Files are downloaded when they are opened and kept in $XDG_STATE_HOME/tulo up to --cache-size. What is
changed is kept here first and sent to the host about a second later, or when the host is back.
The log goes to the journal with --foreground under systemd, else to service.log beside the cache.)";

struct Arguments {
  std::string mountPoint;
  std::string container;
  std::string account;
  std::string domain;
  std::string cacheSize = "10G";
  std::string keepFree = "5%";
  std::string logFormat = "text";
  bool foreground = false;
  bool allowOther = false;
  bool noThumbnails = false;
  bool debug = false;
  bool readOnly = false;
  bool sync = false;
  double syncTimeout = 60;
};

std::string domainOf(const Arguments& arguments) {
  if (!arguments.domain.empty()) return arguments.domain;
  return Index::domainPrefix() + (arguments.account.empty() ? "primary" : arguments.account);
}

CacheLimits limitsOf(const Arguments& arguments) {
  CacheLimits limits;
  limits.size = parseSize(arguments.cacheSize);
  if (arguments.keepFree.ends_with('%')) {
    limits.keepFreeFraction = parsePercentage(arguments.keepFree);
  } else {
    limits.keepFreeFraction = 0;
    limits.keepFreeBytes = parseSize(arguments.keepFree);
  }
  return limits;
}

ServiceOptions optionsOf(const Arguments& arguments) {
  if (!arguments.container.empty()) platform::setContainerDirectory(arguments.container);
  ServiceOptions options;
  options.domain = domainOf(arguments);
  options.mountPoint = std::filesystem::absolute(arguments.mountPoint).lexically_normal();
  if (options.mountPoint.size() > 1 && options.mountPoint.ends_with('/')) {
    options.mountPoint.pop_back();
  }
  const platform::NSFileProviderDomain domain(options.domain, options.domain);
  options.source = {platform::containerDirectory(), Index::databaseName(domain)};
  options.probe =
      std::make_shared<IndexProbe>(options.source.directory + '/' + options.source.database,
                                   container::hostSocket(options.source.directory));
  options.limits = limitsOf(arguments);
  options.allowOther = arguments.allowOther;
  options.thumbnails = !arguments.noThumbnails;
  options.debug = arguments.debug;
  options.readWrite = !arguments.readOnly;
  if (arguments.sync) {
    options.syncPatience = milliseconds(static_cast<std::int64_t>(arguments.syncTimeout * 1000));
  }
  return options;
}

// Sent by the process to its own waiting thread when the service has ended by itself.
constexpr int kStopWaiting = SIGUSR1;

// The signals that end the service, blocked in every thread that starts later.
sigset_t blockEndSignals() {
  sigset_t signals = {};
  ::sigemptyset(&signals);
  for (const int number : {SIGTERM, SIGINT, SIGHUP, kStopWaiting})
    ::sigaddset(&signals, number);
  ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  return signals;
}

// Waits for the blocked signals on a thread of its own: the first one has the service end, a second
// one at once. It has to end before the service does: its threads may still be inside end() or
// stop() when run() has returned.
class StopOnSignal {
 public:
  StopOnSignal(const sigset_t& signals, Service& service)
      : thread_([signals, &service] { wait(signals, service); }) {}

  ~StopOnSignal() {
    ::pthread_kill(thread_.native_handle(), kStopWaiting);
    thread_.join();
  }

  StopOnSignal(const StopOnSignal&) = delete;
  StopOnSignal& operator=(const StopOnSignal&) = delete;

 private:
  static void wait(const sigset_t& signals, Service& service) {
    std::thread ending;
    int number = 0;
    while (::sigwait(&signals, &number) == 0 && number != kStopWaiting) {
      if (ending.joinable()) {
        service.stop();
      } else {
        ending = std::thread([&service] { service.end(); });
      }
    }
    if (ending.joinable()) ending.join();
  }

  std::thread thread_;
};

// `ready` is told what the user should know.
void serve(const Arguments& arguments, const std::function<void(const std::string&)>& ready) {
  raiseDescriptorLimit();
  if (arguments.logFormat == "json") platform::setLogSink(platform::jsonLogSink());
  const ServiceOptions options = optionsOf(arguments);
  const sigset_t signals = blockEndSignals();
  Service service(options, [](const platform::DomainPointer& domain) {
    return std::make_shared<FileProviderExtension>(domain);
  });
  const StopOnSignal stopper(signals, service);
  service.run([&] { ready(service.notice()); });
}

// What the background process tells the one that the user started: when the mount answers what the
// user should know, else the reason.
class Report {
 public:
  Report() {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) throw ServiceError("cannot make a pipe");
    read_ = FileDescriptor(ends[0]);
    write_ = FileDescriptor(ends[1]);
  }

  void good(const std::string& notice) { finish('+' + notice); }
  void bad(const std::string& reason) { finish('-' + reason); }

  // In the parent: prints what it is told. The exit status.
  int wait() {
    write_.reset();
    std::string text;
    std::array<char, 1024> piece;
    for (ssize_t count = 0; (count = ::read(read_.get(), piece.data(), piece.size())) > 0;) {
      text.append(piece.data(), static_cast<std::size_t>(count));
    }
    const std::string words = text.empty() ? "the service ended unexpectedly" : text.substr(1);
    if (!words.empty()) std::fprintf(stderr, "tulo: %s\n", words.c_str());
    return text.starts_with('+') ? 0 : 1;
  }

 private:
  void finish(const std::string& text) {
    if (!write_) return;
    if (::write(write_.get(), text.data(), text.size()) < 0) return;
    write_.reset();
  }

  FileDescriptor read_;
  FileDescriptor write_;
};

void detachFromTerminal(const std::string& domain) {
  ::setsid();
  if (::chdir("/") != 0) throw ServiceError("cannot enter /");
  const std::string state = paths::stateDirectory(domain);
  paths::createPrivateDirectory(state);
  const std::string path = state + "/service.log";
  const FileDescriptor log(::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
  const FileDescriptor null(::open("/dev/null", O_RDWR | O_CLOEXEC));
  if (!log || !null) throw ServiceError("cannot open " + path + ": " + std::strerror(errno));
  ::dup2(null.get(), STDIN_FILENO);
  ::dup2(null.get(), STDOUT_FILENO);
  ::dup2(log.get(), STDERR_FILENO);
}

[[noreturn]] void serveInBackground(const Arguments& arguments, Report& report) {
  int status = 1;
  try {
    detachFromTerminal(domainOf(arguments));
    serve(arguments, [&report](const std::string& notice) { report.good(notice); });
    status = 0;
  } catch (const std::exception& error) {
    report.bad(error.what());
  }
  std::fflush(nullptr);
  ::_exit(status);
}

int mount(Arguments arguments) {
  // The background process leaves the current directory.
  arguments.mountPoint = std::filesystem::absolute(arguments.mountPoint);
  if (!arguments.container.empty()) {
    arguments.container = std::filesystem::absolute(arguments.container);
  }
  if (arguments.foreground) {
    // There the log tells it.
    serve(arguments, [](const std::string&) {});
    return 0;
  }
  Report report;
  // Before any thread exists.
  const pid_t child = ::fork();
  if (child < 0) throw ServiceError(std::string("cannot start: ") + std::strerror(errno));
  if (child == 0) serveInBackground(arguments, report);
  return report.wait();
}

void addAccountOptions(CLI::App& command, Arguments& arguments) {
  command.add_option("MOUNTPOINT", arguments.mountPoint, "An existing, empty directory")
      ->required()
      ->type_name("DIR");
  command
      .add_option("--container", arguments.container,
                  "The shared container; default $TULO_CONTAINER, else $XDG_DATA_HOME/tulo")
      ->type_name("DIR");
  CLI::Option* account =
      command.add_option("--account", arguments.account, "The account; default: the primary one")
          ->type_name("NAME");
  command.add_option("--domain", arguments.domain, "The domain's identifier, instead of --account")
      ->type_name("ID")
      ->excludes(account);
}

void addCacheOptions(CLI::App& command, Arguments& arguments) {
  command.add_option("--cache-size", arguments.cacheSize, "Most that downloads may take up")
      ->check(checkSizeText)
      ->type_name("SIZE")
      ->capture_default_str();
  command
      .add_option("--keep-free", arguments.keepFree,
                  "How much of the disk stays free, as a percentage or a size")
      ->check(checkSizeOrPercentage)
      ->type_name("AMOUNT")
      ->capture_default_str();
}

void addMannerOptions(CLI::App& command, Arguments& arguments) {
  command.add_option("--log-format", arguments.logFormat, "How the log is written")
      ->check(CLI::IsMember({"text", "json"}))
      ->capture_default_str();
  command.add_flag("--foreground,-f", arguments.foreground, "Stay in the foreground");
  command.add_flag("--allow-other", arguments.allowOther,
                   "Let other users look (needs user_allow_other in /etc/fuse.conf)");
  command.add_flag("--no-thumbnails", arguments.noThumbnails,
                   "Leave the desktop's thumbnail cache alone");
  command.add_flag("--debug", arguments.debug, "Log every request of the kernel");
}

void addWritingOptions(CLI::App& command, Arguments& arguments) {
  CLI::Option* readOnly = command.add_flag("--read-only", arguments.readOnly,
                                           "Let nothing be changed, and send nothing");
  CLI::Option* sync = command.add_flag(
      "--sync", arguments.sync,
      "Have closing a changed file, renaming, making folders and removing wait for the host");
  sync->excludes(readOnly);
  command
      .add_option("--sync-timeout", arguments.syncTimeout,
                  "How many seconds --sync waits before it fails with ETIMEDOUT")
      ->check(checkSeconds)
      ->needs(sync)
      ->type_name("SECONDS")
      ->capture_default_str();
}

// In the order of the help.
void addMount(CLI::App& app, int& exitStatus) {
  auto arguments = std::make_shared<Arguments>();
  CLI::App* command = app.add_subcommand("mount", kMountHelp);
  addAccountOptions(*command, *arguments);
  addCacheOptions(*command, *arguments);
  addMannerOptions(*command, *arguments);
  addWritingOptions(*command, *arguments);
  command->callback([arguments, &exitStatus] { exitStatus = mount(*arguments); });
}

}  // namespace

void addMountCommand(CLI::App& app, int& exitStatus) {
  addMount(app, exitStatus);
}

}  // namespace tulo::cli
