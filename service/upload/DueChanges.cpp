#include "service/upload/DueChanges.h"

#include <utility>

#include "service/replica/Journal.h"

namespace tulo {

namespace {

constexpr std::int64_t kBatch = 256;
constexpr int kPause = 10;

}  // namespace

bool DueChanges::fill(WallTime now) {
  const auto found = replica_.read([&](ReplicaReader& reader) {
    return journal::due(reader, now, lastDue_, lastNode_, kBatch);
  });
  for (const journal::Due& each : found)
    batch_.push_back(each.node);
  if (found.empty()) return false;
  lastDue_ = found.back().due;
  lastNode_ = found.back().node;
  return true;
}

// Only what the pass itself took counts, not the rest after it.
void DueChanges::endPass() {
  const Clock::time_point now = Clock::now();
  notBefore_ = now + (inVain_ ? kPause * (now - began_) : Clock::duration::zero());
}

void DueChanges::capWaits(WallTime now) {
  const WallTime latest = now + longest_;
  const auto found =
      replica_.read([](ReplicaReader& reader) { return journal::latestDue(reader); });
  if (!found || *found <= latest) return;
  replica_.write(Durability::eventual,
                 [&](ReplicaWriter& writer) { journal::capDue(writer, latest, now); });
}

bool DueChanges::beginPass(WallTime nowDue, bool patient) {
  const Clock::time_point now = Clock::now();
  if (patient && now < notBefore_) return false;
  if (!wanted_.exchange(false)) return false;
  capWaits(nowDue);
  passing_ = true;
  began_ = now;
  inVain_ = true;
  lastDue_ = WallTime(milliseconds(-1));
  lastNode_ = kNoNode;
  return true;
}

std::optional<NodeId> DueChanges::next(WallTime now, bool patient) {
  while (batch_.empty()) {
    if (fill(now)) break;
    if (std::exchange(passing_, false)) endPass();
    if (!beginPass(now, patient)) return std::nullopt;
  }
  const NodeId node = batch_.front();
  batch_.pop_front();
  return node;
}

}  // namespace tulo
