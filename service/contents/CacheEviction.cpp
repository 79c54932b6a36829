#include "service/contents/CacheEviction.h"

#include <cerrno>
#include <optional>

#include "service/contents/Blocks.h"
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

CacheEviction::Victims CacheEviction::victims(std::int64_t bytes, bool evenOpen) {
  Victims found;
  replica_.read([&](ReplicaReader& reader) {
    for (nodeContents::Cached last; found.bytes < bytes;) {
      const auto page = nodeContents::leastUsed(reader, last, kBatch);
      if (page.empty()) return;
      last = page.back();
      for (const nodeContents::Cached& cached : page) {
        if (found.bytes >= bytes) return;
        if (!evenOpen && openFiles_.isOpen(cached.node)) continue;
        found.nodes.push_back(cached.node);
        found.bytes += bytesIn(cached.blocks);
      }
    }
  });
  return found;
}

bool CacheEviction::evictSome(std::int64_t bytes) {
  use_.save();
  const std::int64_t before = store_.room().used();
  for (const NodeId id : victims(bytes, false).nodes) {
    if (before - store_.room().used() >= bytes) break;
    evict(id);
  }
  return store_.room().used() < before;
}

Fit CacheEviction::fitOf(std::int64_t bytes) {
  const std::int64_t missing = store_.room().diskShortage(bytes);
  if (missing == 0 || victims(missing, false).bytes >= missing) return Fit::now;
  const std::int64_t others = store_.room().reserved();
  return missing <= others || victims(missing - others, true).bytes >= missing - others
             ? Fit::later
             : Fit::never;
}

Fit CacheEviction::make(std::int64_t bytes) {
  const MutexLock one(mutex_);
  if (const Fit fit = fitOf(bytes); fit != Fit::now) return fit;
  for (std::int64_t missing = store_.room().shortage(bytes); missing > 0;
       missing = store_.room().shortage(bytes)) {
    if (!evictSome(missing)) break;
  }
  if (store_.room().diskShortage(bytes) > 0) return Fit::later;
  store_.room().reserve(bytes);
  return Fit::now;
}

bool CacheEviction::step() {
  const std::int64_t missing = store_.room().shortage(0);
  return missing > 0 && evictSome(missing);
}

}  // namespace tulo
