// The service without the kernel: everything that a mount shows and what keeps it true.
//
// Threads: every member may be called on any thread, start() and stop() once each.
#pragma once

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "service/contents/Contents.h"
#include "service/contents/Pins.h"
#include "service/edits/Edits.h"
#include "service/edits/LocalFiles.h"
#include "service/kernel/Acknowledged.h"
#include "service/kernel/Folders.h"
#include "service/kernel/Notifier.h"
#include "service/listing/SourceWatch.h"
#include "service/listing/Sync.h"
#include "service/replica/Replica.h"
#include "service/upload/Uploader.h"

namespace tulo {

using ExtensionFactory = std::function<std::shared_ptr<platform::NSFileProviderReplicatedExtension>(
    platform::DomainPointer)>;

struct EngineOptions {
  std::string domain;
  std::string stateDirectory;  // must exist
  SourceFiles source;
  CacheLimits limits;
  // The user's list of programs that may not cause a download; empty: only the built-in one.
  std::string noDownloadList;
  // Changes made here go up; without, nothing can be changed.
  bool readWrite = false;
  std::vector<std::string> localNames = LocalNames::defaults();
  // After the last change of an item before it goes up.
  milliseconds quiet{1000};
  WallClock clock = systemClock;
  // Called on a program's thread that is about to wait for the disk.
  std::function<void()> beforeWaiting = [] {};
};

class Engine {
 public:
  // Opens or creates the replica. Throws DatabaseError or ContentError.
  Engine(const EngineOptions& options, const ExtensionFactory& factory);
  ~Engine();
  Engine(const Engine&) = delete;
  Engine& operator=(const Engine&) = delete;

  // Starts the background work. A test that wants single steps leaves it out.
  void start();
  // Ends it, answers whoever waits, and writes down what a restart can use.
  void stop();

  // One round of the housekeeping; false when there was nothing to do.
  bool housekeepingStep();
  // Has the next round begin at once.
  void poke();

  const EngineOptions& options() const { return options_; }
  ExtensionPointer extension() const { return extension_; }
  Replica& replica() { return replica_; }
  Folders& folders() { return folders_; }
  OpenFiles& openFiles() { return openFiles_; }
  Notifier& notifier() { return notifier_; }
  Sync& sync() { return *sync_; }
  Contents& contents() { return *contents_; }
  ContentStore& store() { return store_; }
  SourceWatch& source() { return source_; }
  Pins& pins() { return pins_; }
  LocalFiles& files() { return files_; }
  Edits& edits() { return edits_; }
  Uploader& uploader() { return *uploader_; }
  // Files that were recovered because the replica was damaged.
  std::size_t recovered() const { return recovered_; }

 private:
  void addRoot();
  void recover();
  UploaderParts uploaderParts();
  void housekeep();

  const EngineOptions options_;
  const ExtensionPointer extension_;
  Replica replica_;
  Folders folders_;
  OpenFiles openFiles_;
  Notifier notifier_;
  SourceWatch source_;
  ContentStore store_;
  Acknowledged acknowledged_;
  DownloadPolicy policy_;
  std::unique_ptr<Sync> sync_;
  std::shared_ptr<Contents> contents_;
  Pins pins_;
  LocalFiles files_;
  Edits edits_;
  std::unique_ptr<Uploader> uploader_;
  std::size_t recovered_ = 0;

  // Guards the flags; a leaf.
  std::mutex mutex_;
  std::condition_variable changed_;
  bool stopping_ = false;
  bool poked_ = false;
  std::uint64_t savedGeneration_ = 0;
  std::thread housekeeper_;
};

}  // namespace tulo
