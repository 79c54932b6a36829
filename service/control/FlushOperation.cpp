#include <algorithm>
#include <chrono>
#include <thread>

#include "service/control/Operations.h"
#include "service/control/Scope.h"
#include "service/control/Shown.h"

namespace tulo::control {

namespace {

constexpr std::size_t kShown = 100;
constexpr milliseconds kLook{100};
constexpr int kLooksRarely = 10;
constexpr milliseconds kEndless{0};
constexpr milliseconds kLongestTimeout = std::chrono::hours(365 * 24);

ChangeCounts countsIn(const ControlParts& parts, const Scope& scope) {
  if (scope.everything) {
    return changeCounts(
        parts.replica.read([](ReplicaReader& reader) { return journal::counts(reader); }));
  }
  ChangeCounts counts;
  const std::vector<NodeId> nodes = changedIn(parts, scope);
  parts.replica.read([&](ReplicaReader& reader) {
    for (NodeId node : nodes) {
      const std::optional<Change> change = journal::find(reader, node);
      if (!change || change->standing.isHeld()) continue;
      ++(change->standing.isRefused() ? counts.needsAttention : counts.pending);
    }
  });
  return counts;
}

std::vector<Change> changesIn(ReplicaReader& reader, const Scope& scope,
                              const std::vector<NodeId>& nodes) {
  if (scope.everything) return journal::all(reader, kShown);
  std::vector<Change> changes;
  for (NodeId node : nodes) {
    if (const auto change = journal::find(reader, node)) changes.push_back(*change);
  }
  return changes;
}

// Some of what is left, what needs attention first.
std::vector<PendingChange> someIn(const ControlParts& parts, const Scope& scope) {
  const auto nodes = scope.everything ? std::vector<NodeId>() : changedIn(parts, scope);
  std::vector<PendingChange> result;
  parts.replica.read([&](ReplicaReader& reader) {
    std::vector<Change> changes = changesIn(reader, scope, nodes);
    std::stable_partition(changes.begin(), changes.end(),
                          [](const Change& change) { return change.standing.isRefused(); });
    for (const Change& change : changes) {
      if (change.standing.isHeld() || result.size() >= kShown) continue;
      result.push_back(shown(parts.openFiles, pending::describe(reader, change)));
    }
  });
  return result;
}

void hurry(const ControlParts& parts, const Scope& scope) {
  if (scope.everything) {
    parts.uploader.hurryAll();
  } else {
    parts.uploader.hurry(changedIn(parts, scope));
  }
}

// How many changes are left when nothing waits any more, the time is over, or nobody listens.
ChangeCounts awaitNone(const ControlParts& parts, const Scope& scope, milliseconds timeout,
                       const FlushListener& listener) {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point start = Clock::now();
  for (;;) {
    const Clock::time_point begin = Clock::now();
    const ChangeCounts counts = countsIn(parts, scope);
    const FlushProgress progress{counts.pending, hostState(parts.uploader.statistics())};
    const bool over = timeout != kEndless && Clock::now() - start >= timeout;
    if (counts.pending == 0 || over || !listener(progress)) return counts;
    // Looking through a long queue must not hold up those who see to it.
    const auto cost = std::chrono::duration_cast<milliseconds>(Clock::now() - begin);
    std::this_thread::sleep_for(std::max(kLook, kLooksRarely * cost));
  }
}

}  // namespace

FlushReply flush(const ControlParts& parts, const FlushRequest& request,
                 const FlushListener& listener) {
  const Scope scope = scopeOf(parts, request.about);
  const milliseconds timeout = std::clamp(request.timeout, milliseconds{0}, kLongestTimeout);
  FlushReply reply;
  reply.outcome = Outcome::with(scope.unknown);
  reply.left = countsIn(parts, scope);
  if (parts.readWrite) {
    hurry(parts, scope);
    if (request.wait) reply.left = awaitNone(parts, scope, timeout, listener);
  } else if (reply.left.pending > 0) {
    reply.outcome.ok = false;
    reply.outcome.error = "the account is mounted read-only, so nothing goes up";
  }
  reply.changes = someIn(parts, scope);
  reply.host = hostState(parts.uploader.statistics());
  return reply;
}

}  // namespace tulo::control
