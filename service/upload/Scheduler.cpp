#include "service/upload/Scheduler.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "service/base/ServiceLog.h"
#include "service/replica/Journal.h"
#include "service/replica/JournalTree.h"

namespace tulo {

namespace {

constexpr std::chrono::milliseconds kLongestRest{1000};

}  // namespace

Scheduler::Scheduler(const UploaderParts& parts, Verdicts& verdicts, HostHealth& health,
                     CarryOut carryOut)
    : parts_(parts),
      verdicts_(verdicts),
      health_(health),
      carryOut_(std::move(carryOut)),
      due_(parts.replica, kLongestPause + parts.files.quiet()) {}

void Scheduler::start() {
  host_ = parts_.host();
  workers_ = std::make_unique<WorkQueue>(HostHealth::kParallel);
  thread_ = std::thread([this] { loop(); });
}

void Scheduler::stop() {
  alarm_.stop();
  if (thread_.joinable()) thread_.join();
  if (workers_) workers_->stop();
}

void Scheduler::poke() {
  // Nothing is due before its quiet time is over; a storm of changes wakes nobody.
  if (wakesAt_.load() <= parts_.files.now() + parts_.files.quiet()) return;
  alarm_.wake();
}

Turn Scheduler::turnOf(ReplicaReader& reader, NodeId node, WallTime now) {
  const std::optional<Change> change = journal::find(reader, node);
  if (!change || change->standing.due() > now || !change->standing.isReady()) return Turn::later;
  if (active_.contains(node)) return Turn::later;
  const bool beingWritten = parts_.files.isBeingWritten(node) && !verdicts_.isAwaited(node);
  if (beingWritten && !change->isDeleted()) return Turn::later;
  const UploadOrder::IsActive isActive = [this](NodeId other) { return active_.contains(other); };
  return UploadOrder(reader, parts_.localNames, isActive).turnOf(*change);
}

std::optional<Scheduler::Pick> Scheduler::pick(bool patient) {
  const WallTime now = parts_.files.now();
  if (active_.size() >= health_.room(now) || parts_.host().empty()) return std::nullopt;
  while (const std::optional<NodeId> node = due_.next(now, patient)) {
    const Turn turn =
        parts_.replica.read([&](ReplicaReader& reader) { return turnOf(reader, *node, now); });
    if (turn == Turn::later) continue;
    due_.taken();
    active_.take(*node);
    return Pick{*node, turn == Turn::aside};
  }
  return std::nullopt;
}

bool Scheduler::step() {
  due_.again();
  const std::optional<Pick> picked = pick(false);
  if (!picked) return false;
  carryOut_(picked->node, picked->aside);
  return true;
}

void Scheduler::finished(NodeId node) {
  due_.again();
  active_.giveBack(node);
  alarm_.wake();
}

void Scheduler::lookNow() {
  health_.lookNow(parts_.files.now());
  due_.again();
  alarm_.wake();
}

void Scheduler::reached() {
  if (health_.reached()) retry(false);
}

void Scheduler::retry(bool refused) {
  health_.reset();
  const WallTime now = parts_.files.now();
  parts_.replica.write(Durability::eventual,
                       [&](ReplicaWriter& writer) { journal::retry(writer, now, refused); });
  lookNow();
}

void Scheduler::retry(const std::vector<NodeId>& nodes) {
  parts_.replica.write(Durability::eventual, [&](ReplicaWriter& writer) {
    for (NodeId node : nodes) {
      std::optional<Change> change = journal::find(writer, node);
      if (!change) continue;
      change->standing.tryAgain();
      journal::put(writer, *change);
      writer.setError(node, "");
    }
  });
  hurry(nodes);
}

void Scheduler::hurry(const std::vector<NodeId>& nodes) {
  const WallTime now = parts_.files.now();
  parts_.replica.write(Durability::eventual, [&](ReplicaWriter& writer) {
    for (NodeId node : nodes)
      journal::hurry(writer, node, now);
  });
  lookNow();
}

void Scheduler::hurryAll() {
  const WallTime now = parts_.files.now();
  parts_.replica.write(Durability::eventual,
                       [&](ReplicaWriter& writer) { journal::hurryAll(writer, now); });
  lookNow();
}

void Scheduler::watchHost() {
  const std::string host = parts_.host();
  if (host != host_ && !host.empty()) retry(true);
  host_ = host;
  if (host.empty()) verdicts_.failAll(EHOSTDOWN);
}

std::chrono::milliseconds Scheduler::giveOut() {
  watchHost();
  verdicts_.expire(parts_.files.now());
  while (const std::optional<Pick> picked = pick(true)) {
    workers_->async([this, next = *picked] { carryOut_(next.node, next.aside); });
  }
  const WallTime now = parts_.files.now();
  const auto next =
      parts_.replica.read([&](ReplicaReader& reader) { return journal::nextDue(reader, now); });
  std::chrono::milliseconds rest = kLongestRest;
  for (const auto& until : {next, verdicts_.nextDeadline()}) {
    if (until && *until > now) rest = std::min(rest, *until - now + milliseconds(1));
  }
  return rest;
}

void Scheduler::loop() {
  while (alarm_.begin()) {
    std::chrono::milliseconds rest = kLongestRest;
    try {
      rest = giveOut();
    } catch (const std::exception& error) {
      serviceLog().error("cannot look for changes to send: %{public}@", {error.what()});
    }
    wakesAt_ = parts_.files.now() + rest;
    if (!alarm_.rest(rest)) due_.again();
  }
}

}  // namespace tulo
