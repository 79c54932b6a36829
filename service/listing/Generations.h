// Which state of the source is the current one, and which folders are up to it.
//
// A generation counts the commits that were noticed. A folder is fresh while the generation that it
// was listed for is the current one. The generation of the last run goes on if the source's
// fingerprint is still the one that was written down with it.
//
// Threads: every member may be called on any thread.
// Errors: what the replica throws.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>

#include "platform/linux/Mutex.h"
#include "service/kernel/Folders.h"
#include "service/listing/Listing.h"
#include "service/listing/SourceWatch.h"
#include "service/replica/Replica.h"

namespace tulo {

enum class Freshness {
  current,
  older,    // verified since the service started, but something was committed since
  unknown,  // not looked at since the service started
};

class Generations {
 public:
  Generations(Replica& replica, SourceWatch& source, Folders& folders);

  // Called on the thread that noticed that something was committed. To be set before the first
  // check.
  void whenCommitted(std::function<void()> committed) { committed_ = std::move(committed); }

  std::uint64_t current() const { return current_.load(); }
  // Looks whether something was committed; true when the generation went up.
  bool check();
  // The same at next to no cost, for every open; may miss what check() would see.
  void glance() {
    if (source_.publishedSince()) check();
  }

  // What a listing that begins now is a listing of.
  ListingStamp stamp();

  // `listed`: the generation in the folder's row.
  Freshness freshness(NodeId folder, std::uint64_t listed);

  // Writes down how far each folder is verified, so that a restart need not list it again.
  void save();

 private:
  Replica& replica_;
  SourceWatch& source_;
  Folders& folders_;
  std::function<void()> committed_;
  std::atomic<std::uint64_t> current_ = 1;

  // Before the source's.
  Mutex mutex_;
  // What the current generation stands for.
  std::string fingerprint_ TULO_GUARDED_BY(mutex_);
};

}  // namespace tulo
