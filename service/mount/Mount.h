// The mount: the kernel's requests on one side, the replica and its helpers on the other.
//
// Whatever is known is answered on the thread that took the request (RequestLoop); what has to wait
// is answered from the completion, so that a slow download never keeps a thread. The kernel's
// caches are given long time-outs: Notifier tells the kernel what is no longer true.
//
// Threads: run() serves on several threads until stop(), which any thread may call.
#pragma once

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

#include "service/contents/Contents.h"
#include "service/edits/Edits.h"
#include "service/kernel/Folders.h"
#include "service/kernel/Notifier.h"
#include "service/listing/Sync.h"
#include "service/replica/Replica.h"
#include "service/upload/Uploader.h"

namespace tulo {

class MountError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct MountOptions {
  std::string mountPoint;
  std::string name;  // shown as the mount's source
  bool allowOther = false;
  bool readWrite = false;
  bool debug = false;
};

struct MountParts {
  Replica& replica;
  Sync& sync;
  Contents& contents;
  OpenFiles& openFiles;
  Folders& folders;
  Notifier& notifier;
  std::string domain;
  // Somebody lists the folder. Must return at once.
  std::function<void(NodeId)> listed;
  // Null for a mount in which nothing can be changed.
  Edits* edits = nullptr;
  LocalFiles* files = nullptr;
  // Set: closing a changed file, renaming, making folders and removing wait for the host's word, up
  // to `patience`.
  Uploader* awaited = nullptr;
  milliseconds patience{};
};

class Mount final : public InvalidationSink {
 public:
  // Mounts. Throws MountError, which says what is wrong with the mount point.
  Mount(const MountOptions& options, const MountParts& parts);
  ~Mount() override;

  // Serves until unmounted or stopped.
  void run();
  // Makes run() return; any thread but run()'s own.
  void stop();
  // Cuts the connection, so that nothing in the kernel waits for an answer any more. After run().
  void abort();

  void deliver(const Invalidation& invalidation) override;

  // Unmounts what a service that died has left at the path; false when there is nothing like that.
  static bool clearStale(const std::string& mountPoint);

 private:
  struct Session;
  std::unique_ptr<Session> session_;
};

}  // namespace tulo
