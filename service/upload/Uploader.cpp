#include "service/upload/Uploader.h"

#include <cerrno>
#include <chrono>

#include "service/base/FaultPoints.h"
#include "service/base/Names.h"
#include "service/base/ServiceLog.h"
#include "service/errors/Errno.h"
#include "service/replica/JournalTree.h"
#include "service/upload/UploaderPlan.h"

namespace tulo {

namespace {

// So many items in a row that could not be sent mean that none can.
constexpr std::size_t kHostIsDown = 3;
// The longest pause between two looks whether the host is back.
constexpr milliseconds kProbe{15000};
constexpr std::chrono::milliseconds kLongestRest{1000};

}  // namespace

Uploader::Uploader(const UploaderParts& parts)
    : parts_(parts), replica_(parts.replica), due_(parts.replica) {}

Uploader::~Uploader() {
  stop();
}

void Uploader::start() {
  host_ = parts_.host();
  workers_ = std::make_unique<WorkQueue>(kParallel);
  scheduler_ = std::thread([this] { scheduleLoop(); });
}

void Uploader::stop() {
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
    changed_.notify_all();
  }
  if (scheduler_.joinable()) scheduler_.join();
  if (workers_) workers_->stop();
  verdicts_.failAll(EIO);
}

void Uploader::poke() {
  // Nothing is due before its quiet time is over; a storm of changes wakes nobody.
  if (wakesAt_.load() <= parts_.files.now() + parts_.files.quiet()) return;
  std::lock_guard lock(mutex_);
  poked_ = true;
  changed_.notify_all();
}

bool Uploader::isActive(NodeId node) {
  std::lock_guard lock(mutex_);
  return active_.contains(node);
}

Turn Uploader::turnOf(ReplicaReader& reader, const Change& change) {
  if (isActive(change.node)) return Turn::later;
  const bool beingWritten =
      parts_.openFiles.isOpenForWriting(change.node) && !verdicts_.isAwaited(change.node);
  if (beingWritten && !change.deleted) return Turn::later;
  return UploadOrder(reader, parts_.localNames, [this](NodeId node) { return isActive(node); })
      .turnOf(change);
}

// Whether one more change may be on its way to the host.
bool Uploader::hasRoom(WallTime now) {
  std::lock_guard lock(mutex_);
  if (pausedUntil_ > now || probeAt_ > now) return false;
  const bool probing = !reachable_ || pausedUntil_ != WallTime{};
  return active_.size() < (probing ? 1 : kParallel);
}

std::optional<Uploader::Pick> Uploader::pick(bool patient) {
  const WallTime now = parts_.files.now();
  if (!hasRoom(now) || parts_.host().empty()) return std::nullopt;
  while (const std::optional<NodeId> node = due_.next(now, patient)) {
    const Turn turn = replica_.read([&](ReplicaReader& reader) {
      const std::optional<Change> change = journal::find(reader, *node);
      const bool due = change && change->due <= now && !change->attention && !change->held;
      return due ? turnOf(reader, *change) : Turn::later;
    });
    if (turn == Turn::later) continue;
    due_.taken();
    std::lock_guard lock(mutex_);
    active_.insert(*node);
    return Pick{*node, turn == Turn::aside};
  }
  return std::nullopt;
}

void Uploader::finished(NodeId node) {
  due_.again();
  std::lock_guard lock(mutex_);
  active_.erase(node);
  poked_ = true;
  changed_.notify_all();
}

// The verdict when nothing more will be done about the node's change.
void Uploader::checkAwaited(NodeId id) try {
  if (!verdicts_.isAwaited(id)) return;
  std::optional<Change> change;
  bool staysHere = false;
  replica_.read([&](ReplicaReader& reader) {
    change = journal::find(reader, id);
    const std::optional<Node> node = reader.node(id);
    staysHere = !node || (change && !change->deleted && parts_.localNames.matches(node->name));
  });
  if (!change || change->held || staysHere) {
    verdicts_.settled(id);
  } else if (change->attention) {
    verdicts_.failed(id, EIO);
  }
} catch (const std::exception& error) {
  serviceLog().error("cannot see what became of node %d: %{public}@", {id.number(), error.what()});
  verdicts_.failed(id, EIO);
}

void Uploader::awaitVerdict(Verdicts::Ticket ticket, const std::vector<NodeId>& nodes,
                            milliseconds patience) try {
  const WallTime now = parts_.files.now();
  verdicts_.await(ticket, nodes, now + patience);
  for (NodeId node : nodes)
    checkAwaited(node);
  if (parts_.host().empty()) return verdicts_.cancel(ticket, EHOSTDOWN);
  hurry(nodes);
  {
    std::lock_guard lock(mutex_);
    if (!stopping_) return;
  }
  verdicts_.cancel(ticket, EIO);
} catch (const std::exception& error) {
  serviceLog().error("cannot have changes go up at once: %{public}@", {error.what()});
  verdicts_.cancel(ticket, EIO);
}

void Uploader::relistWanted() {
  std::vector<NodeId> folders;
  {
    std::lock_guard lock(mutex_);
    folders.swap(relist_);
  }
  for (NodeId folder : folders) {
    if (parts_.relist) parts_.relist(folder);
  }
}

void Uploader::carryOut(NodeId node, bool aside) {
  try {
    if (std::optional<Plan> plan = makePlan(node, aside)) perform(*plan);
  } catch (const std::exception& error) {
    serviceLog().error("cannot send the change of node %d: %{public}@",
                       {node.number(), error.what()});
    verdicts_.failed(node, EIO);
    try {
      const auto putOff = [&](ReplicaWriter& writer) {
        std::optional<Change> change = journal::find(writer, node);
        if (!change) return;
        change->due = parts_.files.now() + backOff(++change->attempts, Reaction::retry, 0);
        journal::put(writer, *change);
      };
      // Nothing else makes room on a full disk as long as nobody deletes anything.
      replica_.write(Durability::eventual, putOff, Room::fromReserve);
    } catch (const std::exception& failure) {
      serviceLog().error("cannot put off the change of node %d: %{public}@",
                         {node.number(), failure.what()});
    }
  }
  finished(node);
  checkAwaited(node);
  relistWanted();
}

bool Uploader::step() {
  due_.again();
  const std::optional<Pick> picked = pick(false);
  if (!picked) return false;
  carryOut(picked->node, picked->aside);
  return true;
}

void Uploader::scheduleLoop() {
  std::unique_lock lock(mutex_);
  while (!stopping_) {
    poked_ = false;
    lock.unlock();
    std::chrono::milliseconds rest = kLongestRest;
    try {
      const std::string host = parts_.host();
      // Another host may take what the last one refused.
      if (host != host_ && !host.empty()) retry(true);
      host_ = host;
      if (host.empty()) verdicts_.failAll(EHOSTDOWN);
      verdicts_.expire(parts_.files.now());
      while (const std::optional<Pick> picked = pick(true)) {
        workers_->async([this, next = *picked] { carryOut(next.node, next.aside); });
      }
      const WallTime now = parts_.files.now();
      const auto next =
          replica_.read([&](ReplicaReader& reader) { return journal::nextDue(reader, now); });
      for (const auto& until : {next, verdicts_.nextDeadline()}) {
        if (until && *until > now) rest = std::min(rest, *until - now + milliseconds(1));
      }
    } catch (const std::exception& error) {
      serviceLog().error("cannot look for changes to send: %{public}@", {error.what()});
    }
    lock.lock();
    wakesAt_ = parts_.files.now() + rest;
    changed_.wait_for(lock, rest, [this] { return stopping_ || poked_; });
    if (!poked_) due_.again();
  }
}

void Uploader::retry(bool refused) {
  {
    std::lock_guard lock(mutex_);
    pausedUntil_ = {};
    probeAt_ = {};
    reachable_ = true;
    failedNodes_.clear();
  }
  const WallTime now = parts_.files.now();
  replica_.write(Durability::eventual,
                 [&](ReplicaWriter& writer) { journal::retry(writer, now, refused); });
  due_.again();
  std::lock_guard lock(mutex_);
  poked_ = true;
  changed_.notify_all();
}

void Uploader::retry(const std::vector<NodeId>& nodes) {
  replica_.write(Durability::eventual, [&](ReplicaWriter& writer) {
    for (NodeId node : nodes) {
      std::optional<Change> change = journal::find(writer, node);
      if (!change) continue;
      change->attention = false;
      change->attempts = 0;
      journal::put(writer, *change);
      writer.setError(node, "");
    }
  });
  hurry(nodes);
}

void Uploader::hurry(const std::vector<NodeId>& nodes) {
  const WallTime now = parts_.files.now();
  replica_.write(Durability::eventual, [&](ReplicaWriter& writer) {
    for (NodeId node : nodes)
      journal::hurry(writer, node, now);
  });
  lookNow();
}

void Uploader::hurryAll() {
  const WallTime now = parts_.files.now();
  replica_.write(Durability::eventual,
                 [&](ReplicaWriter& writer) { journal::hurryAll(writer, now); });
  lookNow();
}

void Uploader::lookNow() {
  due_.again();
  const WallTime now = parts_.files.now();
  std::lock_guard lock(mutex_);
  // Somebody may have signed in meanwhile.
  pausedUntil_ = std::min(pausedUntil_, now);
  probeAt_ = std::min(probeAt_, now);
  poked_ = true;
  changed_.notify_all();
}

void Uploader::reached() {
  {
    std::lock_guard lock(mutex_);
    ++statistics_.sent;
    pauses_ = 0;
    probes_ = 0;
    failedNodes_.clear();
    if (reachable_ && pausedUntil_ == WallTime{}) return;
  }
  // What waited for the host need not wait any longer.
  retry(false);
}

// One item may be locked at the host, which looks the same; when several cannot be sent, and none
// can, it is the host.
void Uploader::unreachable(NodeId node, WallTime now) {
  failedNodes_.insert(node);
  if (failedNodes_.size() < kHostIsDown) return;
  reachable_ = false;
  probeAt_ = now + std::min(backOff(++probes_, Reaction::retryUnreachable, random_()), kProbe);
}

Uploader::Statistics Uploader::statistics() {
  const bool present = !parts_.host().empty();
  const journal::Counts counts =
      replica_.read([](ReplicaReader& reader) { return journal::counts(reader); });
  std::lock_guard lock(mutex_);
  Statistics result = statistics_;
  result.counts = counts;
  result.present = present;
  result.active = active_.size();
  result.activeNodes.assign(active_.begin(), active_.end());
  result.paused = pausedUntil_ != WallTime{};
  result.reachable = reachable_ && present;
  return result;
}

void Uploader::react(const Plan& plan, const platform::NSError& error) {
  const Reaction reaction = reactionTo(error);
  if (reaction == Reaction::lookAgain) {
    if (plan.kind == Plan::Kind::remove) return forget(plan.node.id);
    if (plan.kind == Plan::Kind::modify) {
      const Answer again = lookUp(plan.node.identifier);
      if (again.isGone()) return itemGone(plan);
    }
    if (plan.parentIdentifier != platform::NSFileProviderRootContainerItemIdentifier() &&
        lookUp(plan.parentIdentifier).isGone()) {
      return parentGone(plan);
    }
  }
  note(plan, error, reaction);
}

void Uploader::note(const Plan& plan, const platform::NSError& error, Reaction reaction) {
  std::string words = descriptionOf(error);
  const WallTime now = parts_.files.now();
  std::uint64_t random = 0;
  bool stopsAll = false;
  {
    std::lock_guard lock(mutex_);
    random = random_();
    ++statistics_.failures;
    statistics_.lastError = words;
    if (reaction == Reaction::retryUnreachable) unreachable(plan.node.id, now);
    if (reaction == Reaction::pause) pausedUntil_ = now + backOff(++pauses_, reaction, random);
    stopsAll = !reachable_ || reaction == Reaction::pause;
  }
  bool attention = false;
  replica_.write(Durability::eventual, [&](ReplicaWriter& writer) {
    std::optional<Change> change = journal::find(writer, plan.node.id);
    if (!change) return;
    ++change->attempts;
    change->due = now + backOff(change->attempts, reaction, random);
    if (reaction == Reaction::pause) change->due = now;
    if (provesNotDone(error)) change->sent = false;
    const bool tired = (reaction == Reaction::uncertain || reaction == Reaction::lookAgain) &&
                       change->attempts >= kUncertainAttempts;
    change->attention = reaction == Reaction::refuse || tired;
    words += adviceFor(reaction, change->attention);
    change->reason = words;
    attention = change->attention;
    journal::put(writer, *change);
    const bool shown = change->attention || reaction == Reaction::retryShown;
    if (shown) writer.setError(plan.node.id, words);
  });
  if (attention) {
    serviceLog().error("%{public}@ is refused by the host: %{public}@", {plan.node.name, words});
  } else {
    serviceLog().info("%{public}@ did not go up: %{public}@", {plan.node.name, words});
  }
  tellVerdict(plan.node.id, errnoFor(error), stopsAll);
}

// What waits for a folder to go up first shares its verdict.
void Uploader::tellVerdict(NodeId id, int number, bool all) {
  if (all) return verdicts_.failAll(number);
  for (NodeId awaited : verdicts_.awaited()) {
    const bool inside = replica_.read([&](ReplicaReader& reader) {
      std::optional<Node> node = reader.node(awaited);
      while (node && node->id != id && node->identifier.empty())
        node = reader.node(node->parent);
      return node && node->id == id;
    });
    if (inside) verdicts_.failed(awaited, number);
  }
  verdicts_.failed(id, number);
}

}  // namespace tulo
