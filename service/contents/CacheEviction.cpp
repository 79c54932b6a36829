#include "service/contents/CacheEviction.h"

#include <cerrno>
#include <optional>

#include "service/replica/NodeContents.h"

namespace tulo {

namespace {

constexpr std::int64_t kBatch = 64;

}  // namespace

int CacheEviction::evict(NodeId id) {
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

bool CacheEviction::evictSome(std::int64_t bytes) {
  use_.save();
  const std::int64_t before = store_.room().used();
  const auto oldest =
      replica_.read([](ReplicaReader& reader) { return nodeContents::leastUsed(reader, kBatch); });
  for (NodeId id : oldest) {
    if (before - store_.room().used() >= bytes) break;
    evict(id);
  }
  return store_.room().used() < before;
}

bool CacheEviction::make(std::int64_t bytes) {
  const MutexLock one(mutex_);
  for (std::int64_t missing = store_.room().shortage(bytes); missing > 0;
       missing = store_.room().shortage(bytes)) {
    if (!evictSome(missing)) break;
  }
  return store_.room().diskShortage(bytes) == 0;
}

bool CacheEviction::step() {
  const std::int64_t missing = store_.room().shortage(0);
  return missing > 0 && evictSome(missing);
}

}  // namespace tulo
