#include "service/contents/CacheRoom.h"

#include <cerrno>
#include <optional>

#include "service/replica/NodeContents.h"

namespace tulo {

namespace {

constexpr std::int64_t kBatch = 64;

}  // namespace

int CacheRoom::evict(NodeId id) {
  const ExclusiveLock gate(openFiles_.gate());
  if (openFiles_.isOpen(id)) return EBUSY;
  std::optional<Node> node;
  const auto drop = [&](ReplicaWriter& writer) {
    node = writer.node(id);
    const bool mayGo = node && node->state == ContentState::downloaded && !node->kept;
    if (mayGo) nodeContents::drop(writer, id);
  };
  replica_.write(Durability::eventual, drop, Room::fromReserve);
  if (!node) return ESTALE;
  if (node->kind == NodeKind::folder || node->state == ContentState::dataless) return 0;
  if (node->state == ContentState::dirty || node->kept) return EBUSY;
  ++evicted_;
  leftOvers_.remove({node->content});
  notifier_.queue({attributesChanged(id)});
  return 0;
}

bool CacheRoom::evictSome(std::int64_t bytes) {
  use_.save();
  const std::int64_t before = store_.used();
  const auto oldest =
      replica_.read([](ReplicaReader& reader) { return nodeContents::leastUsed(reader, kBatch); });
  for (NodeId id : oldest) {
    if (before - store_.used() >= bytes) break;
    evict(id);
  }
  return store_.used() < before;
}

bool CacheRoom::make(std::int64_t bytes) {
  const MutexLock one(mutex_);
  for (std::int64_t missing = store_.shortage(bytes); missing > 0;
       missing = store_.shortage(bytes)) {
    if (!evictSome(missing)) break;
  }
  return store_.diskShortage(bytes) == 0;
}

bool CacheRoom::step() {
  const std::int64_t missing = store_.shortage(0);
  return missing > 0 && evictSome(missing);
}

}  // namespace tulo
