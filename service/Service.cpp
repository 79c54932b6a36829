#include "service/Service.h"

#include <sys/stat.h>
#include <systemd/sd-daemon.h>

#include <fstream>
#include <optional>
#include <thread>

#include "service/Departure.h"
#include "service/EngineControl.h"
#include "service/ThumbnailPage.h"
#include "service/base/ServiceLog.h"
#include "service/control/ControlServer.h"
#include "service/control/ServiceControl.h"
#include "service/mount/HelperProcess.h"
#include "service/mount/RequestLoop.h"

namespace tulo {

namespace {

// How long a service waits for one of the same account that is about to end.
constexpr seconds kPredecessor{10};
constexpr milliseconds kRhythm{10};
// Longer than a machine under load takes, shorter than whoever waits for the service to be ready.
constexpr seconds kAnswering{60};

// Whether the mount answers.
bool answers(const std::string& mountPoint) {
  HelperProcess helper([path = mountPoint.c_str()] {
    struct stat status = {};
    return ::stat(path, &status) == 0 ? 0 : 1;
  });
  return helper.wait(kAnswering) == 0;
}

EngineOptions engineOptions(const ServiceOptions& options, const std::string& state) {
  EngineOptions result;
  result.domain = options.domain;
  result.stateDirectory = state;
  result.source = options.source;
  result.probe = options.probe;
  result.limits = options.limits;
  result.noDownloadList = DownloadPolicy::userListPath();
  result.readWrite = options.readWrite;
  result.quiet = options.quiet;
  result.wallClock = systemClock;
  result.beforeWaiting = &RequestLoop::passTurn;
  return result;
}

std::unique_ptr<Engine> openEngine(const EngineOptions& options, const ExtensionFactory& factory) {
  try {
    return std::make_unique<Engine>(options, factory);
  } catch (const sqlite::DatabaseError& error) {
    if (!error.meansDamage()) throw;
    // It left word of that, so now it is set aside.
    return std::make_unique<Engine>(options, factory);
  }
}

bool isMounted(const DomainTaken& taken) {
  // As that process sees it, which may be hidden from here.
  std::ifstream table("/proc/" + taken.process() + "/mountinfo");
  return !taken.place().empty() && ourMountAt(taken.place(), table).has_value();
}

// A service whose mount is gone ends soon, and one that has none yet has it soon.
std::unique_ptr<DomainLock> lockOf(const std::string& state) {
  const auto end = std::chrono::steady_clock::now() + kPredecessor;
  for (;;) {
    try {
      return std::make_unique<DomainLock>(state);
    } catch (const DomainTaken& taken) {
      if (isMounted(taken)) throw;
      if (std::chrono::steady_clock::now() > end) {
        throw ServiceError("the service that had this account before (process " + taken.process() +
                           ") has not ended yet; programs may still use its mount");
      }
    }
    std::this_thread::sleep_for(kRhythm);
  }
}

}  // namespace

Service::Service(const ServiceOptions& options, const ExtensionFactory& factory)
    : options_(options) {
  const std::string state = paths::stateDirectory(options.domain);
  paths::createPrivateDirectory(state);
  lock_ = lockOf(state);
  guard_ = std::make_unique<AccountGuard>(state, options.source);
  EngineOptions engine = engineOptions(options, state);
  engine.sameAccount = [this] { return guard_->holds(); };
  engine_ = openEngine(engine, factory);
  startThumbnails();
  engine_->sync().whenReconciled([this](NodeId folder) { listed(folder); });
  mount_ =
      std::make_unique<Mount>(MountOptions{options.mountPoint, options.domain, options.allowOther,
                                           options.readWrite, options.debug},
                              mountParts());
  lock_->tellPlace(mount_->point().path());
  departure_ = std::make_unique<Departure>(*mount_, engine_->openFiles(), engine_->notifier());
  control_ = std::make_unique<ControlServer>(
      paths::controlSocket(options.domain),
      [this, parts = controlPartsOf(*engine_, options.mountPoint)](
          const std::string& request, const ControlServer::Emit& emit) {
        answer(parts, request, emit);
      });
}

MountParts Service::mountParts() {
  MountParts parts{engine_->replica(),
                   engine_->sync(),
                   engine_->contents(),
                   engine_->openFiles(),
                   engine_->folders(),
                   engine_->notifier(),
                   options_.domain,
                   [this](NodeId folder) { listed(folder); },
                   nullptr,
                   nullptr};
  if (!options_.readWrite) return parts;
  parts.edits = &engine_->edits();
  parts.files = &engine_->files();
  parts.awaited = options_.syncPatience > milliseconds::zero() ? &engine_->uploader() : nullptr;
  parts.patience = options_.syncPatience;
  return parts;
}

Service::~Service() {
  control_.reset();
  departure_.reset();
  mount_.reset();
  thumbnails_.reset();
  engine_.reset();
}

void Service::startThumbnails() {
  const auto source =
      std::dynamic_pointer_cast<platform::NSFileProviderThumbnailing>(engine_->extension());
  const std::optional<std::string> directory = DesktopThumbnails::userDirectory();
  if (!options_.thumbnails || !source || !directory) return;
  thumbnails_ = std::make_unique<ThumbnailBatcher>(source, DesktopThumbnails(*directory));
}

// Called for every listing that reaches the service and for every change of a folder, so it only
// leaves word.
void Service::listed(NodeId folder) {
  if (!thumbnails_) return;
  thumbnails_->listed(folder.number(), [this, folder, after = kNoNode]() mutable {
    try {
      return engine_->replica().read([&](ReplicaReader& reader) {
        return thumbnailPage(reader, options_.mountPoint, folder, after);
      });
    } catch (const sqlite::DatabaseError& error) {
      serviceLog().error("no thumbnails for folder %d: %{public}@",
                         {folder.number(), error.what()});
      return std::vector<ThumbnailFile>();
    }
  });
}

void Service::answer(const ControlParts& parts, const std::string& request,
                     const ControlServer::Emit& emit) {
  // Taking the mount away ends run() by itself, which must not cut off the answer to that.
  std::optional<Departure::Answer> answering;
  ControlParts own = parts;
  own.kept = guard_->kept();
  own.leave = [&](const control::UnmountRequest& how) {
    answering.emplace(*departure_);
    return departure_->leave(how);
  };
  if (answerControl(own, request, emit)) stop();
}

void Service::run(const std::function<void()>& ready) {
  engine_->notifier().start(mount_->caches());
  engine_->start();
  control_->start();
  if (thumbnails_) thumbnails_->start();
  std::thread announcer([&] {
    // The kernel queues requests from the moment of mounting on, so the first look waits for the
    // loop, not for a clock.
    if (!answers(options_.mountPoint)) {
      serviceLog().error("the mount at %{public}@ does not answer", {options_.mountPoint});
    }
    sd_notify(0, "READY=1");
    ready();
  });
  mount_->run();
  departure_->ended();
  sd_notify(0, "STOPPING=1");
  // Nobody answers any more what the announcer, or an order to leave, may be waiting for.
  mount_->abort();
  departure_->awaitAnswers();
  tellUnsent();
  announcer.join();
  control_->stop();
  if (thumbnails_) thumbnails_->stop();
  engine_->stop();
}

void Service::tellUnsent() {
  try {
    const journal::Counts counts = engine_->uploader().statistics().counts;
    if (counts.pending + counts.attention == 0) return;
    serviceLog().info(
        "ends with %d changes that were not sent and %d that the host refused; they are kept and "
        "go up after the next mount",
        {counts.pending, counts.attention});
  } catch (const std::exception& error) {
    serviceLog().error("cannot count the changes that were not sent: %{public}@", {error.what()});
  }
}

void Service::end() {
  departure_->prepareEnd();
  stop();
}

void Service::stop() {
  departure_->ended();
  mount_->stop();
}

}  // namespace tulo
