#include "service/upload/Uploader.h"

#include <cerrno>

#include "service/base/ServiceLog.h"
#include "service/errors/Errno.h"

namespace tulo {

namespace {

// What an earlier run put off waits no longer than what is changed now.
void capWaits(const UploaderParts& parts) {
  const WallTime latest = parts.files.now() + parts.files.quiet();
  const auto found =
      parts.replica.read([](ReplicaReader& reader) { return journal::latestDue(reader); });
  if (!found || *found <= latest) return;
  const auto cap = [&](ReplicaWriter& writer) { journal::capDue(writer, latest, latest); };
  parts.replica.write(Durability::eventual, cap, Room::fromReserve);
}

}  // namespace

Uploader::Uploader(const UploaderParts& parts)
    : parts_(parts),
      relisting_(parts.relist),
      provider_(parts.extension, parts.store, parts.belief),
      reappearance_(parts_),
      judge_(parts.replica, parts_.localNames, verdicts_),
      outcome_(parts_, relisting_, tally_),
      failure_(parts_, provider_, reappearance_, outcome_, health_, judge_, tally_),
      doubt_(parts_, provider_, outcome_, failure_),
      planner_(parts.localNames, parts.store,
               [this](NodeId node) { return scheduler_.active().contains(node); }),
      delivery_(parts_, {planner_, provider_, outcome_, failure_, doubt_, reappearance_, verdicts_,
                         [this] {
                           tally_.sent();
                           scheduler_.reached();
                         }}),
      scheduler_(parts_, verdicts_, health_,
                 [this](NodeId node, bool aside) { carryOut(node, aside); }),
      discard_(parts_, scheduler_, provider_, relisting_) {
  capWaits(parts_);
}

Uploader::~Uploader() {
  stop();
}

void Uploader::stop() {
  provider_.stop();
  scheduler_.stop();
  verdicts_.failAll(EIO);
}

void Uploader::carryOut(NodeId node, bool aside) {
  delivery_.carryOut(node, aside);
  scheduler_.finished(node);
  judge_.check(node);
  relisting_.listWanted();
}

void Uploader::awaitVerdict(Verdicts::Ticket ticket, const std::vector<NodeId>& nodes,
                            milliseconds patience) try {
  verdicts_.await(ticket, nodes, parts_.files.now() + patience);
  for (NodeId node : nodes)
    judge_.check(node);
  if (parts_.host().empty()) return verdicts_.cancel(ticket, EHOSTDOWN);
  hurry(nodes);
  if (provider_.isStopped()) verdicts_.cancel(ticket, EIO);
} catch (const std::exception& error) {
  serviceLog().error("cannot have changes go up at once: %{public}@", {error.what()});
  verdicts_.cancel(ticket, errnoFor(error));
}

Uploader::Statistics Uploader::statistics() {
  const Tally::Counts requests = tally_.counts();
  Statistics result;
  result.sent = requests.sent;
  result.failures = requests.failures;
  result.conflicts = requests.conflicts;
  result.lastError = requests.lastError;
  result.present = !parts_.host().empty();
  result.counts =
      parts_.replica.read([](ReplicaReader& reader) { return journal::counts(reader); });
  result.activeNodes = scheduler_.active().all();
  result.active = result.activeNodes.size();
  result.paused = health_.isPaused();
  result.reachable = health_.isReachable() && result.present;
  return result;
}

}  // namespace tulo
