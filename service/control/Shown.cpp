#include "service/control/Shown.h"

#include "service/replica/JournalTree.h"

namespace tulo::control {

namespace {

constexpr std::int64_t kNamed = 4;

ChangeState stateOf(const OpenFiles& openFiles, const Change& change) {
  if (change.standing.isRefused()) return ChangeState::needsAttention;
  if (change.standing.isHeld()) return ChangeState::local;
  if (change.request.isUnanswered()) return ChangeState::atHost;
  if (openFiles.isOpenForWriting(change.node())) return ChangeState::beingWritten;
  return change.standing.attempts() > 0 ? ChangeState::tryingAgain : ChangeState::waiting;
}

}  // namespace

std::string pathOf(Replica& replica, NodeId node) {
  return replica.read([&](ReplicaReader& reader) { return pending::pathOf(reader, node); });
}

HostState hostState(const Uploader::Statistics& statistics) {
  return {.present = statistics.present,
          .reachable = statistics.reachable,
          .paused = statistics.paused};
}

ChangeCounts changeCounts(const journal::Counts& counts) {
  return {.pending = counts.pending, .needsAttention = counts.attention};
}

PendingChange shown(const OpenFiles& openFiles, const pending::Item& item) {
  PendingChange result;
  result.path = item.path;
  result.kind = changeKindNamed(pending::kindOf(item.change));
  result.folder = item.kind == NodeKind::folder;
  result.state = stateOf(openFiles, item.change);
  result.attempts = item.change.standing.attempts();
  result.error = item.change.standing.reason();
  if (!item.former.empty()) result.from = item.former;
  if (item.kind == NodeKind::file && !item.change.isDeleted()) result.size = item.size;
  return result;
}

std::optional<PendingChange> shownInFull(const OpenFiles& openFiles, ReplicaReader& reader,
                                         NodeId node) {
  const std::optional<Change> change = journal::find(reader, node);
  if (!change) return std::nullopt;
  const pending::Item item = pending::describe(reader, *change);
  PendingChange result = shown(openFiles, item);
  if (item.kind == NodeKind::folder && item.isNew && !change->isDeleted()) {
    result.keeps = journal::localPaths(reader, node, kNamed);
  }
  return result;
}

}  // namespace tulo::control
