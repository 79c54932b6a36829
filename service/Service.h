// One account as a folder: the engine, its mount and its control socket in one process.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "service/AccountGuard.h"
#include "service/Engine.h"
#include "service/base/ServicePaths.h"
#include "service/desktop/ThumbnailBatcher.h"
#include "service/mount/Mount.h"

namespace tulo {

struct ServiceOptions {
  std::string domain;
  std::string mountPoint;
  SourceFiles source;
  std::shared_ptr<const SourceProbe> probe;  // see EngineOptions
  CacheLimits limits;
  bool thumbnails = true;
  bool allowOther = false;
  bool debug = false;
  bool readWrite = false;
  milliseconds quiet{1000};
  // How long closing a file, renaming and the like wait for the host; 0: not at all.
  milliseconds syncPatience{0};
};

class ControlServer;
class Departure;
struct ControlParts;

class Service {
 public:
  // Takes the domain's lock, opens the replica and mounts. Throws ServiceError, MountError,
  // DatabaseError or ContentError, each with a message for the user.
  Service(const ServiceOptions& options, const ExtensionFactory& factory);
  ~Service();

  // Serves until stop() or an unmount; `ready` is called once the mount answers.
  void run(const std::function<void()>& ready);
  // Ends as the system wants it: programs that write something get a moment to finish. Returns when
  // run() is about to; any thread but run()'s own.
  void end();
  // Ends at once; the same threads, also while end() waits.
  void stop();

  // What the user is to be told of another account's unsent changes; empty when there are none.
  const std::string& notice() const { return guard_->notice(); }

  Engine& engine() { return *engine_; }

 private:
  MountParts mountParts();
  void startThumbnails();
  void listed(NodeId folder);
  void answer(const ControlParts& parts, const std::string& request,
              const std::function<bool(const std::string&)>& emit);
  void tellUnsent();

  const ServiceOptions options_;
  std::unique_ptr<DomainLock> lock_;
  std::unique_ptr<AccountGuard> guard_;
  std::unique_ptr<Engine> engine_;
  std::unique_ptr<ThumbnailBatcher> thumbnails_;
  std::unique_ptr<Mount> mount_;
  std::unique_ptr<Departure> departure_;
  std::unique_ptr<ControlServer> control_;
};

}  // namespace tulo
