#include "service/Uploader.h"

#include <cerrno>
#include <chrono>

#include "service/Errno.h"
#include "service/FaultPoints.h"
#include "service/ServiceLog.h"
#include "service/UploaderPlan.h"

namespace tulo {

namespace {

constexpr std::int64_t kBatch = 256;
constexpr std::int64_t kScanned = 8192;
constexpr std::chrono::milliseconds kLongestRest{1000};

}  // namespace

Uploader::Uploader(const UploaderParts& parts) : parts_(parts), replica_(parts.replica) {}

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
  std::lock_guard lock(mutex_);
  poked_ = true;
  changed_.notify_all();
}

bool Uploader::isActive(NodeId node) {
  std::lock_guard lock(mutex_);
  return active_.contains(node);
}

// Whether nothing that comes before it is still to be done.
Uploader::Readiness Uploader::readiness(ReplicaReader& reader, const Change& change) {
  Connection& database = reader.connection();
  const bool beingWritten =
      parts_.openFiles.isOpenForWriting(change.node) && !verdicts_.isAwaited(change.node);
  if (isActive(change.node) || beingWritten) {
    return change.deleted && !isActive(change.node) ? Readiness::ready : Readiness::wait;
  }
  const std::optional<Node> node = reader.node(change.node);
  if (!node) return Readiness::ready;
  if (change.deleted) {
    if (node->kind == NodeKind::folder) {
      for (const Change& inside : journal::basedIn(database, node->identifier)) {
        if (inside.node != change.node) return Readiness::wait;
      }
      return Readiness::ready;
    }
    // Something new has its place and takes over its identity.
    const std::optional<Node> parent = reader.nodeFor(change.baseParent);
    if (!parent) return Readiness::ready;
    for (const Change& other : journal::inFolder(database, parent->id)) {
      const std::optional<Node> heir = reader.node(other.node);
      if (other.node != change.node && heir && heir->kind == NodeKind::file &&
          heir->filename == change.baseFilename && heir->parent == parent->id &&
          (other.baseParent != change.baseParent || other.baseFilename != change.baseFilename)) {
        return Readiness::wait;
      }
    }
    return Readiness::ready;
  }
  const std::optional<Node> parent = reader.node(node->parent);
  if (!parent || (parent->identifier.empty() && !parts_.localNames.matches(node->name))) {
    // A folder that stays here keeps what is in it here.
    const std::optional<Change> above = parent ? journal::find(database, parent->id) : std::nullopt;
    return above && !above->held ? Readiness::wait : Readiness::ready;
  }
  const bool aside = change.baseFilename == asideName(*node);
  for (const Change& other : journal::basedOn(database, parent->identifier, node->filename)) {
    if (other.node == change.node || (other.sequence > change.sequence && !aside)) continue;
    if (isActive(other.node)) return Readiness::wait;
    const std::optional<Node> before = reader.node(other.node);
    const bool leavesIdentity =
        before && before->kind == NodeKind::file && node->kind == NodeKind::file &&
        (other.deleted || other.held || parts_.localNames.matches(before->name));
    if (!leavesIdentity && !other.attention) return Readiness::wait;
  }
  if (node->kind == NodeKind::folder && !change.baseParent.empty() &&
      change.baseParent != parent->identifier) {
    // Two folders that are moved into one another's former place must move in order.
    Statement& statement =
        database
            .cached(
                "SELECT 1 FROM pending JOIN node ON node.id=pending.node JOIN node AS above ON "
                "above.id=node.parent WHERE node.kind=1 AND deleted=0 AND sequence<? AND "
                "attention=0 AND held=0 AND base_parent<>'' AND "
                "base_parent IS NOT above.identifier LIMIT 1")
            .bind(change.sequence);
    StatementUse use(statement);
    if (statement.step()) return Readiness::wait;
  }
  return Readiness::ready;
}

std::optional<Change> Uploader::pick() {
  const std::int64_t now = parts_.files.now();
  {
    std::lock_guard lock(mutex_);
    if (pausedUntil_ > now) return std::nullopt;
    const bool probing = !reachable_ || pausedUntil_ != 0;
    if (active_.size() >= (probing ? 1 : kParallel)) return std::nullopt;
  }
  const std::string host = parts_.host();
  if (host.empty()) return std::nullopt;
  std::optional<Change> picked;
  replica_.read([&](ReplicaReader& reader) {
    std::int64_t after = 0;
    for (std::int64_t scanned = 0; scanned < kScanned && !picked; scanned += kBatch) {
      const auto batch = journal::due(reader.connection(), now, after, kBatch);
      if (batch.empty()) return;
      for (const Change& change : batch) {
        after = change.sequence;
        if (readiness(reader, change) != Readiness::ready) continue;
        picked = change;
        break;
      }
    }
  });
  if (picked) {
    std::lock_guard lock(mutex_);
    if (!active_.insert(picked->node).second) return std::nullopt;
  }
  return picked;
}

void Uploader::finished(NodeId node) {
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
    change = journal::find(reader.connection(), id);
    const std::optional<Node> node = reader.node(id);
    staysHere = !node || (change && !change->deleted && parts_.localNames.matches(node->name));
  });
  if (!change || change->held || staysHere) {
    verdicts_.settled(id);
  } else if (change->attention) {
    verdicts_.failed(id, EIO);
  }
} catch (const std::exception& error) {
  serviceLog().error("cannot see what became of node %d: %{public}@", {id, error.what()});
  verdicts_.failed(id, EIO);
}

void Uploader::awaitVerdict(Verdicts::Ticket ticket, const std::vector<NodeId>& nodes,
                            std::int64_t patience) try {
  const std::int64_t now = parts_.files.now();
  verdicts_.await(ticket, nodes, now + patience);
  for (NodeId node : nodes)
    checkAwaited(node);
  if (parts_.host().empty()) return verdicts_.cancel(ticket, EHOSTDOWN);
  replica_.write(Durability::eventual, [&](ReplicaWriter& writer) {
    for (NodeId node : nodes)
      journal::hurry(writer.connection(), node, now);
  });
  {
    std::lock_guard lock(mutex_);
    // Somebody may have signed in meanwhile.
    pausedUntil_ = std::min(pausedUntil_, now);
    if (!stopping_) {
      poked_ = true;
      changed_.notify_all();
      return;
    }
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

void Uploader::carryOut(NodeId node) {
  try {
    if (std::optional<Plan> plan = makePlan(node)) perform(*plan);
  } catch (const std::exception& error) {
    serviceLog().error("cannot send the change of node %d: %{public}@", {node, error.what()});
    verdicts_.failed(node, EIO);
    try {
      replica_.write(Durability::eventual, [&](ReplicaWriter& writer) {
        std::optional<Change> change = journal::find(writer.connection(), node);
        if (!change) return;
        change->due = parts_.files.now() + backOff(++change->attempts, Reaction::retry, 0);
        journal::put(writer.connection(), *change);
      });
    } catch (const std::exception& failure) {
      serviceLog().error("cannot put off the change of node %d: %{public}@",
                         {node, failure.what()});
    }
  }
  finished(node);
  checkAwaited(node);
  relistWanted();
}

bool Uploader::step() {
  const std::optional<Change> change = pick();
  if (!change) return false;
  carryOut(change->node);
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
      if (host != host_ && !host.empty()) retry(false);
      host_ = host;
      if (host.empty()) verdicts_.failAll(EHOSTDOWN);
      verdicts_.expire(parts_.files.now());
      while (const std::optional<Change> change = pick()) {
        workers_->async([this, node = change->node] { carryOut(node); });
      }
      const auto next = replica_.read(
          [](ReplicaReader& reader) { return journal::nextDue(reader.connection()); });
      const std::int64_t now = parts_.files.now();
      for (const auto& until : {next, verdicts_.nextDeadline()}) {
        if (until && *until > now)
          rest = std::min(rest, std::chrono::milliseconds(*until - now + 1));
      }
    } catch (const std::exception& error) {
      serviceLog().error("cannot look for changes to send: %{public}@", {error.what()});
    }
    lock.lock();
    // Pokes come in storms; a pause lets them add up.
    changed_.wait_for(lock, rest, [this] { return stopping_ || poked_; });
  }
}

void Uploader::retry(bool refused) {
  {
    std::lock_guard lock(mutex_);
    pausedUntil_ = 0;
    reachable_ = true;
  }
  const std::int64_t now = parts_.files.now();
  replica_.write(Durability::eventual,
                 [&](ReplicaWriter& writer) { journal::retry(writer.connection(), now, refused); });
  poke();
}

void Uploader::reached() {
  {
    std::lock_guard lock(mutex_);
    ++statistics_.sent;
    if (reachable_ && pausedUntil_ == 0) return;
  }
  // What waited for the host need not wait any longer.
  retry(false);
}

Uploader::Statistics Uploader::statistics() {
  const journal::Counts counts =
      replica_.read([](ReplicaReader& reader) { return journal::counts(reader.connection()); });
  std::lock_guard lock(mutex_);
  Statistics result = statistics_;
  result.counts = counts;
  result.active = active_.size();
  result.paused = pausedUntil_ != 0;
  result.reachable = reachable_;
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
  const std::string words = descriptionOf(error);
  const std::int64_t now = parts_.files.now();
  std::uint64_t random = 0;
  {
    std::lock_guard lock(mutex_);
    random = random_();
    ++statistics_.failures;
    statistics_.lastError = words;
    if (reaction == Reaction::retryUnreachable) reachable_ = false;
    if (reaction == Reaction::pause) pausedUntil_ = now + backOff(20, reaction, random);
  }
  replica_.write(Durability::eventual, [&](ReplicaWriter& writer) {
    std::optional<Change> change = journal::find(writer.connection(), plan.node.id);
    if (!change) return;
    ++change->attempts;
    change->due = now + backOff(change->attempts, reaction, random);
    if (reaction == Reaction::pause) change->due = now;
    change->reason = words;
    if (provesNotDone(error)) change->sent = false;
    const bool tired = (reaction == Reaction::uncertain || reaction == Reaction::lookAgain) &&
                       change->attempts >= kUncertainAttempts;
    change->attention = reaction == Reaction::refuse || tired;
    journal::put(writer.connection(), *change);
    const bool shown = change->attention || reaction == Reaction::retryShown;
    if (shown) writer.setError(plan.node.id, words);
  });
  serviceLog().info("node %d did not go up: %{public}@", {plan.node.id, words});
  const int number = errnoFor(error);
  // What stops one stops all.
  if (reaction == Reaction::retryUnreachable || reaction == Reaction::pause) {
    verdicts_.failAll(number);
  } else {
    verdicts_.failed(plan.node.id, number);
  }
}

}  // namespace tulo
