// Keeps the replica's folders at what the host has.
//
// A generation counts the commits that were noticed. A folder is fresh while the generation that
// it was listed for is the current one. Stale folders are listed again when somebody asks, and
// those that the kernel knows in the background (the sweep), a hand's breadth of the most recently
// used ones first; at what pace, SweepPace knows.
//
// Threads: every member may be called on any thread.
// Lifetime: stop() before anything that was handed in goes.
#pragma once

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "platform/FileProvider.h"
#include "service/base/WorkQueue.h"
#include "service/kernel/Folders.h"
#include "service/kernel/Notifier.h"
#include "service/listing/Listing.h"
#include "service/listing/Reconciler.h"
#include "service/listing/SourceWatch.h"
#include "service/listing/SweepPace.h"
#include "service/replica/Replica.h"

namespace tulo {

using ExtensionPointer = std::shared_ptr<platform::NSFileProviderReplicatedExtension>;

enum class Freshness {
  current,
  older,    // verified since the service started, but something was committed since
  unknown,  // not looked at since the service started
};

class Sync {
 public:
  // Called with 0, or with the errno that says why the folder could not be listed. A folder that
  // was listed before can be read all the same.
  using RefreshCompletion = std::function<void(int error)>;

  Sync(Replica& replica, ExtensionPointer extension, Notifier& notifier, Folders& folders,
       OpenFiles& openFiles, SourceWatch& source, Acknowledged& acknowledged);
  ~Sync();

  // `reconciled` is called, on some thread, for each folder whose files or names turned out to be
  // others than before. To be set before the first listing.
  void whenReconciled(std::function<void(NodeId folder)> reconciled) {
    reconciled_ = std::move(reconciled);
  }

  void start();
  void stop();

  std::uint64_t generation() const { return generation_.load(); }
  // Looks whether something was committed; true when the generation went up.
  bool checkSource();
  // The same at next to no cost, for every open; may miss what checkSource would see.
  void glanceAtSource();
  Freshness freshness(NodeId folder, std::uint64_t listed);

  // Lists the folder again and reconciles. Whoever asks while a listing runs that began before
  // the current generation waits for the next one.
  void refresh(NodeId folder, RefreshCompletion completion);

  // Makes sure that the file is what the host has. In a large folder that takes one look-up as long
  // as nothing is different; else the folder is refreshed.
  void verifyFile(const Node& file, RefreshCompletion completion);

  // Refreshes one stale folder that the kernel knows and waits for it; false when there is none.
  bool sweepStep();

  // Writes down how far each folder is verified, so that a restart need not list it again.
  void saveVerified();

  struct Statistics {
    std::uint64_t generation = 0;
    std::uint64_t listings = 0;
    std::uint64_t unchanged = 0;
    std::uint64_t lookUps = 0;
    std::size_t staleFolders = 0;
    int lastError = 0;
    std::string anchor;
  };
  Statistics statistics() const;

 private:
  struct Running {
    std::uint64_t generation = 0;
    std::vector<RefreshCompletion> waiters;
    std::vector<RefreshCompletion> next;
  };
  struct Attempt;

  void loadGeneration();
  bool enlist(NodeId folder, RefreshCompletion& completion);
  bool startListing(NodeId folder);
  // The identifier of the folder, if listing it is much more work than looking one item up.
  std::optional<std::string> largeFolder(NodeId folder);
  bool beginLookUp();
  void endLookUp();
  void beginListing(NodeId folder);
  void listed(const std::shared_ptr<Attempt>& attempt, Listing listing);
  void verifyMissing(const std::shared_ptr<Attempt>& attempt, std::vector<std::string> missing);
  void apply(const std::shared_ptr<Attempt>& attempt);
  void finish(const std::shared_ptr<Attempt>& attempt, int error);
  void askAnchor();
  std::vector<NodeId> planPass(std::uint64_t generation);
  std::vector<NodeId> planShortPass(std::uint64_t generation);
  void dropListings();
  void sweepLoop();
  bool waitForWork(std::unique_lock<std::mutex>& lock);
  bool rest(std::unique_lock<std::mutex>& lock);

  Replica& replica_;
  ExtensionPointer extension_;
  Notifier& notifier_;
  Folders& folders_;
  SourceWatch& source_;
  Acknowledged& acknowledged_;
  Reconciler reconciler_;
  std::function<void(NodeId)> reconciled_;
  WorkQueue workers_;

  std::atomic<std::uint64_t> generation_ = 1;
  std::atomic<bool> stopping_ = false;
  // A listing was so large that what it leaves behind is worth giving back.
  std::atomic<bool> large_ = false;

  // Guards the fingerprint that the generation stands for. Taken alone.
  mutable std::mutex sourceMutex_;
  std::string fingerprint_;

  // Guards the listings and look-ups under way and the statistics; a leaf, never held while calling
  // out.
  mutable std::mutex runningMutex_;
  std::condition_variable runningChanged_;
  std::unordered_map<NodeId, Running> running_;
  std::size_t lookUps_ = 0;
  Statistics statistics_;

  // Guards the sweep's plan and pace; a leaf.
  std::mutex sweepMutex_;
  std::condition_variable sweepWanted_;
  std::deque<NodeId> pass_;
  std::uint64_t passGeneration_ = 0;
  std::size_t sweptInPass_ = 0;
  bool oldestFirst_ = false;
  SweepPace pace_;
  std::unordered_set<NodeId> retry_;
  std::thread sweeper_;
};

}  // namespace tulo
