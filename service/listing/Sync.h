// Keeps the replica's folders at what the host has: what the other rooms see of it.
//
// Generations says what is up to date, Lister lists folders, LookUps asks for single files, Sweep
// sees to what nobody asks for. Here they are put together, begun and ended.
//
// Threads: every member may be called on any thread.
// Lifetime: stop() before anything that was handed in goes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>

#include "service/kernel/Folders.h"
#include "service/kernel/Notifier.h"
#include "service/listing/Anchor.h"
#include "service/listing/Generations.h"
#include "service/listing/Lister.h"
#include "service/listing/LookUps.h"
#include "service/listing/SourceWatch.h"
#include "service/listing/Sweep.h"
#include "service/listing/SweepPlan.h"
#include "service/replica/ContentStore.h"
#include "service/replica/Replica.h"

namespace tulo {

class Sync {
 public:
  Sync(Replica& replica, ExtensionPointer extension, Notifier& notifier, Folders& folders,
       OpenFiles& openFiles, const ContentStore& store, SourceWatch& source,
       Acknowledged& acknowledged, const Belief& belief = Belief());
  ~Sync();
  Sync(const Sync&) = delete;
  Sync& operator=(const Sync&) = delete;

  // `reconciled` is called, on some thread, for each folder whose files or names turned out to be
  // others than before. To be set before the first listing.
  void whenReconciled(std::function<void(NodeId folder)> reconciled) {
    lister_.whenReconciled(std::move(reconciled));
  }

  void start();
  void stop();

  std::uint64_t generation() const { return generations_.current(); }
  // Looks whether something was committed; true when the generation went up.
  bool checkSource() { return generations_.check(); }
  // The same at next to no cost, for every open; may miss what checkSource would see.
  void glanceAtSource() { generations_.glance(); }
  Freshness freshness(NodeId folder, std::uint64_t listed) {
    return generations_.freshness(folder, listed);
  }

  // Lists the folder again and reconciles. Whoever asks while a listing runs that began before
  // the current generation waits for the next one.
  void refresh(NodeId folder, RefreshCompletion completion) {
    lister_.refresh(folder, std::move(completion));
  }

  // Makes sure that the file is what the host has. In a large folder that takes one look-up as long
  // as nothing is different; else the folder is refreshed.
  void verifyFile(const Node& file, RefreshCompletion completion) {
    lookUps_.verify(file, std::move(completion));
  }

  // Refreshes one stale folder that the kernel knows and waits for it; false when there is none.
  bool sweepStep() { return sweep_.step(); }

  // Writes down how far each folder is verified, so that a restart need not list it again.
  void saveVerified() { generations_.save(); }

  struct Statistics {
    std::uint64_t generation = 0;
    std::uint64_t listings = 0;
    std::uint64_t unchanged = 0;
    std::uint64_t lookUps = 0;
    std::size_t staleFolders = 0;
    int lastError = 0;  // of the last listing
    std::string anchor;
  };
  Statistics statistics() const;

 private:
  SourceWatch& source_;
  Folders& folders_;
  Generations generations_;
  SweepPlan plan_;
  Anchor anchor_;
  Lister lister_;
  LookUps lookUps_;
  Sweep sweep_;
};

}  // namespace tulo
