// The service without the kernel: everything that a mount shows and what keeps it true.
//
// Threads: every member may be called on any thread, start() and stop() once each.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "service/EngineOptions.h"
#include "service/EngineRooms.h"
#include "service/Housekeeper.h"

namespace tulo {

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
  void poke() { housekeeper_.poke(); }

  const EngineOptions& options() const { return options_; }
  ExtensionPointer extension() const { return rooms_.extension; }
  Replica& replica() { return rooms_.storage.replica(); }
  Folders& folders() { return rooms_.folders; }
  OpenFiles& openFiles() { return rooms_.openFiles; }
  Notifier& notifier() { return rooms_.notifier; }
  Sync& sync() { return rooms_.sync; }
  Contents& contents() { return *rooms_.contents; }
  ContentStore& store() { return rooms_.storage.store(); }
  SourceWatch& source() { return rooms_.source; }
  Pins& pins() { return rooms_.pins; }
  LocalFiles& files() { return rooms_.files; }
  Edits& edits() { return rooms_.edits; }
  Uploader& uploader() { return *rooms_.uploader; }
  // Files that were recovered because the replica was damaged.
  std::size_t recovered() const { return rooms_.storage.recovered(); }

 private:
  const EngineOptions options_;
  EngineRooms rooms_;
  // Touched by the housekeeping only.
  std::uint64_t savedGeneration_ = 0;
  std::atomic<bool> stopped_ = false;
  Housekeeper housekeeper_;
};

}  // namespace tulo
