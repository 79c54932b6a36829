// Brings the host what was changed here.
//
// A change is carried out by asking the provider what the host has, sending the difference, and
// noting the answer; each step is in the journal before the next begins, so that it can be picked
// up after a crash. Where it is not known whether the host did what it was sent, that is found out
// first: a file is never created twice.
//
// Before contents go up or an item is deleted, the item is looked up. Had it moved on: the contents
// here become a conflicted copy beside it, and what was to be deleted stays. Gone at the host:
// contents that changed here make a new item, a mere rename is dropped with the item.
//
// Threads: every member may be called on any thread; step() runs one change on the caller's.
// Lifetime: stop() before anything that was handed in goes.
#pragma once

#include <atomic>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <unordered_set>
#include <vector>

#include "platform/FileProvider.h"
#include "service/base/WorkQueue.h"
#include "service/edits/LocalFiles.h"
#include "service/edits/LocalNames.h"
#include "service/errors/Reaction.h"
#include "service/kernel/Acknowledged.h"
#include "service/kernel/Notifier.h"
#include "service/kernel/OpenFiles.h"
#include "service/listing/Listing.h"
#include "service/replica/ContentStore.h"
#include "service/replica/Journal.h"
#include "service/replica/Replica.h"
#include "service/upload/DueChanges.h"
#include "service/upload/UploadOrder.h"
#include "service/upload/Verdicts.h"

namespace tulo {

struct Place;

struct UploaderParts {
  Replica& replica;
  std::shared_ptr<platform::NSFileProviderReplicatedExtension> extension;
  LocalFiles& files;
  ContentStore& store;
  OpenFiles& openFiles;
  Notifier& notifier;
  Acknowledged& acknowledged;
  LocalNames localNames;
  // Has the contents of a node here; returns 0 or an errno.
  std::function<int(NodeId)> fetch;
  // Something that tells one running host from the next; empty when there is none.
  std::function<std::string()> host = [] { return std::string("host"); };
  std::string machine = "this machine";
  // Has a folder listed again.
  std::function<void(NodeId)> relist;
};

class Uploader {
 public:
  static constexpr unsigned kParallel = 6;

  explicit Uploader(const UploaderParts& parts);
  ~Uploader();
  Uploader(const Uploader&) = delete;
  Uploader& operator=(const Uploader&) = delete;

  void start();
  void stop();
  // Something was journaled.
  void poke();

  // Carries out the next change that is due; false when there is none.
  bool step();

  // Has the changes of the nodes go up at once, also of a file that is still open, and completes
  // the ticket with what becomes of the first attempt: EHOSTDOWN at once when there is no host,
  // ETIMEDOUT after `patience`. The changes stay journaled whatever the verdict is.
  void awaitVerdict(Verdicts::Ticket ticket, const std::vector<NodeId>& nodes,
                    milliseconds patience);
  Verdicts& verdicts() { return verdicts_; }

  // Tries again at once; `refused`: also what waits for the user.
  void retry(bool refused);
  // The same for the changes of these nodes, and for nothing else.
  void retry(const std::vector<NodeId>& nodes);
  // Has the waiting changes of these nodes, or all of them, go up without a quiet time.
  void hurry(const std::vector<NodeId>& nodes);
  void hurryAll();
  // Drops what was changed here of the node: the host's state is shown again. Contents that exist
  // nowhere else are gone then. Returns 0 or an errno: ENOENT when nothing was changed, EBUSY for
  // what is being sent or written, ENOTEMPTY for a new folder that something is in, EEXIST for what
  // has to go back to a place that is taken, ESTALE for a folder whose former one is gone. An item
  // that made room for another at the host is renamed there first, whose error that can be, too.
  int discard(NodeId node);

  struct Statistics {
    journal::Counts counts;
    std::size_t active = 0;
    std::vector<NodeId> activeNodes;
    std::uint64_t sent = 0;
    std::uint64_t failures = 0;
    std::uint64_t conflicts = 0;
    bool paused = false;
    bool reachable = true;
    bool present = true;  // there is a host to be asked
    std::string lastError;
  };
  Statistics statistics();

 private:
  struct Call;
  struct Answer;
  struct Plan;

  struct Pick {
    NodeId node = kNoNode;
    bool aside = false;  // makes room for another
  };
  std::optional<Pick> pick(bool patient);
  bool hasRoom(WallTime now);
  Turn turnOf(ReplicaReader& reader, const Change& change);
  bool isActive(NodeId node);
  void lookNow();
  void carryOut(NodeId node, bool aside);
  void finished(NodeId node);
  void relistWanted();
  void scheduleLoop();
  void checkAwaited(NodeId node);
  void tellVerdict(NodeId node, int error, bool all);

  Answer await(const std::function<void(std::shared_ptr<Call>)>& begin);
  Answer lookUp(const std::string& identifier);
  Answer list(const std::string& identifier);
  Answer send(const Plan& plan);

  std::optional<Plan> makePlan(NodeId node, bool aside);
  Plan planOfSent(const Node& node, const Change& change);
  std::optional<Plan> planRemoval(ReplicaWriter& writer, const Node& node, const Change& change);
  std::optional<Plan> planChange(ReplicaWriter& writer, Node& node, Change& change, NodeId& wanted);
  Plan planAside(ReplicaWriter& writer, const Node& node, const Change& change);
  void giveEmptyContents(ReplicaWriter& writer, Node& node);
  bool takeIdentity(ReplicaWriter& writer, Node& node, Change& change,
                    const std::string& parentIdentifier);
  void perform(Plan& plan);
  void performRemoval(Plan& plan);
  bool checkBase(Plan& plan);
  bool checkSame(Plan& plan, const platform::ItemPointer& item);
  void settleDoubt(Plan& plan);
  void endDoubt(const Plan& plan, const platform::ItemPointer& item);
  bool hadTime(const Plan& plan);
  std::optional<platform::ItemPointer> findCreated(const Plan& plan, bool& failed);
  bool hasContents(const std::string& identifier, ContentId content, bool& failed);
  bool markSent(Plan& plan);
  void acknowledge(const Plan& plan, const platform::ItemPointer& item);
  void applyAcknowledgement(ReplicaWriter& writer, const Plan& plan,
                            const platform::ItemPointer& item, ContentId& clean);
  void mergeTwin(ReplicaWriter& writer, NodeId node, const std::string& identifier);
  void forget(NodeId node);
  int comeBack(NodeId node);
  int putBack(Plan& plan, const Place& place);
  int moveBack(ReplicaWriter& writer, Node node, const Change& change,
               Invalidations& invalidations);
  void keepAtHost(const Plan& plan);
  void makeConflict(const Plan& plan, const platform::ItemPointer& item);
  void itemGone(const Plan& plan);
  void parentGone(const Plan& plan);
  void react(const Plan& plan, const platform::NSError& error);
  void note(const Plan& plan, const platform::NSError& error, Reaction reaction);
  void reached();
  void unreachable(NodeId node, WallTime now);

  const UploaderParts parts_;
  Replica& replica_;
  // The scheduler's, or that of whoever calls step().
  DueChanges due_;
  // When the scheduler looks again by itself.
  std::atomic<WallTime> wakesAt_{WallTime{}};

  // Guards everything below; a leaf.
  std::mutex mutex_;
  std::condition_variable changed_;
  std::unordered_set<NodeId> active_;
  bool stopping_ = false;
  bool poked_ = false;
  bool reachable_ = true;
  WallTime pausedUntil_{};
  std::int64_t pauses_ = 0;
  WallTime probeAt_{};
  std::int64_t probes_ = 0;
  // Could not be sent since the last one that could.
  std::unordered_set<NodeId> failedNodes_;
  std::string host_;
  Statistics statistics_;
  std::vector<NodeId> relist_;
  std::minstd_rand random_{std::random_device{}()};

  Verdicts verdicts_;

  std::unique_ptr<WorkQueue> workers_;
  std::thread scheduler_;
};

}  // namespace tulo
