// The background half of Contents: room, pins, left-overs.
#include <cerrno>
#include <fstream>

#include "service/base/ServiceLog.h"
#include "service/contents/Fetch.h"
#include "service/replica/ContentRows.h"
#include "service/replica/DetachedNodes.h"
#include "service/replica/KeptNodes.h"
#include "service/replica/Meta.h"
#include "service/replica/NodeContents.h"
#include "service/replica/Recovery.h"

namespace tulo {

namespace {

constexpr std::int64_t kBlock = 512;
constexpr std::int64_t kBatch = 64;
constexpr std::size_t kAheadQueue = 32;

// An item that moved between two listings is back long before.
constexpr seconds kDetached{60};

std::string bootIdentifier() {
  std::ifstream file("/proc/sys/kernel/random/boot_id");
  std::string text;
  std::getline(file, text);
  return text;
}

}  // namespace

// Contents whose bytes may not have reached the disk before the machine went down are not trusted,
// unless they were changed here and exist nowhere else.
void Contents::start() {
  const std::string boot = bootIdentifier();
  const std::string last =
      replica_.read([](ReplicaReader& reader) { return meta::text(reader, "boot"); });
  const auto note = [&](ReplicaWriter& writer) {
    if (last != boot) {
      nodeContents::dropDoubtful(writer);
      meta::set(writer, "boot", std::string_view(boot));
    }
  };
  replica_.write(Durability::eventual, note, Room::fromReserve);
  store_.setUsed(kBlock *
                 replica_.read([](ReplicaReader& reader) { return contentRows::blocks(reader); }));
}

int Contents::evict(NodeId id) {
  const ExclusiveLock gate(openFiles_.gate());
  if (openFiles_.isOpen(id)) return EBUSY;
  std::optional<Node> node;
  const auto drop = [&](ReplicaWriter& writer) {
    node = writer.node(id);
    if (node && node->state == ContentState::downloaded && !node->kept)
      nodeContents::drop(writer, id);
  };
  replica_.write(Durability::eventual, drop, Room::fromReserve);
  if (!node) return ESTALE;
  if (node->kind == NodeKind::folder || node->state == ContentState::dataless) return 0;
  if (node->state == ContentState::dirty || node->kept) return EBUSY;
  {
    std::lock_guard lock(mutex_);
    ++statistics_.evicted;
  }
  removeUnused({node->content});
  notifier_.queue({attributesChanged(id)});
  return 0;
}

void Contents::cannotRead(const OpenFile& file, const ContentError& error) {
  serviceLog().error("cannot read node %d: %{public}@", {file.node().number(), error.what()});
  // Anything else says nothing of the file: there may be too many open ones.
  if (error.number() != ENOENT && error.number() != EIO) return;
  const ExclusiveLock gate(openFiles_.gate());
  replica_.write(Durability::eventual, [&](ReplicaWriter& writer) {
    const std::optional<Node> node = writer.node(file.node());
    // What was changed here exists nowhere else.
    const bool fetched = node && node->state == ContentState::downloaded;
    if (fetched && node->content == file.content()) nodeContents::drop(writer, node->id);
  });
  notifier_.queue({attributesChanged(file.node())});
}

// Whether they are still unused is asked in the transaction that removes them: meanwhile a node may
// have got them. The file goes before the commit: a row without a file is removed again, a file
// without a row never would be.
void Contents::removeUnused(const std::vector<ContentId>& contents) {
  std::int64_t freed = 0;
  const auto remove = [&](ReplicaWriter& writer) {
    freed = 0;
    for (ContentId content : contents) {
      if (store_.isIncoming(content)) continue;
      const std::optional<std::int64_t> blocks = contentRows::remove(writer, content);
      if (!blocks) continue;
      store_.remove(content);
      freed += *blocks;
    }
  };
  replica_.write(Durability::eventual, remove, Room::fromReserve);
  store_.addUsed(-kBlock * freed);
}

bool Contents::evictSome(std::int64_t bytes) {
  saveUseStep();
  const std::int64_t before = store_.used();
  const auto oldest =
      replica_.read([](ReplicaReader& reader) { return nodeContents::leastUsed(reader, kBatch); });
  for (NodeId id : oldest) {
    if (before - store_.used() >= bytes) break;
    evict(id);
  }
  return store_.used() < before;
}

// Only what is open or kept may hold the cache above its size; the disk's limit has no exception.
bool Contents::makeRoom(std::int64_t bytes) {
  std::lock_guard one(roomMutex_);
  for (std::int64_t missing = store_.shortage(bytes); missing > 0;
       missing = store_.shortage(bytes)) {
    if (!evictSome(missing)) break;
  }
  return store_.diskShortage(bytes) == 0;
}

bool Contents::evictStep() {
  const std::int64_t missing = store_.shortage(0);
  return missing > 0 && evictSome(missing);
}

bool Contents::keepStep() {
  const auto folders = replica_.read(
      [](ReplicaReader& reader) { return keptNodes::unlistedFolders(reader, kBatch); });
  for (NodeId folder : folders)
    sync_.refresh(folder, [](int) {});
  const auto files = replica_.read([this](ReplicaReader& reader) {
    return keptNodes::missingFiles(reader, keepCursor_.load(), kBatch);
  });
  for (NodeId file : files) {
    {
      std::lock_guard lock(mutex_);
      if (waitingAhead_.size() >= kAheadQueue) return false;
    }
    keepCursor_ = file;
    fetch(file, Priority::ahead, [](int) {});
  }
  if (files.empty()) keepCursor_ = kNoNode;
  return !files.empty();
}

bool Contents::purgeContents() {
  auto unused =
      replica_.read([](ReplicaReader& reader) { return contentRows::unused(reader, kBatch); });
  std::erase_if(unused, [this](ContentId content) {
    return store_.isIncoming(content) || openFiles_.isContentOpen(content);
  });
  if (unused.empty()) return false;
  removeUnused(unused);
  return true;
}

bool Contents::purgeStep() {
  const bool removed = purgeContents();
  const bool isFull = store_.diskShortage(0) > 0;
  const auto detached = replica_.read([&](ReplicaReader& reader) {
    auto found = detachedNodes::since(reader, secondsNow() - kDetached, kBatch);
    if (!found.empty() || !isFull) return found;
    // What no item of the host's is cannot come back; whoever empties a full disk wants room now.
    return detachedNodes::unknown(reader, kBatch);
  });
  if (detached.empty()) return removed;
  const ExclusiveLock gate(openFiles_.gate());
  bool any = false;
  const auto purge = [&](ReplicaWriter& writer) {
    for (NodeId id : detached) {
      if (openFiles_.isOpen(id)) continue;
      rescueChanged(writer, id);
      writer.detachChildren(id, secondsNow() - kDetached);
      writer.remove(id);
      any = true;
    }
  };
  replica_.write(Durability::eventual, purge, Room::fromReserve);
  return removed || any;
}

bool Contents::durableStep() {
  const auto fresh =
      replica_.read([](ReplicaReader& reader) { return contentRows::notDurable(reader, kBatch); });
  if (fresh.empty()) return false;
  const std::vector<ContentId> safe = store_.makeDurable(fresh);
  replica_.write(Durability::eventual, [&](ReplicaWriter& writer) {
    for (ContentId content : safe)
      contentRows::setDurable(writer, content);
  });
  return !safe.empty();
}

bool Contents::saveUseStep() {
  std::unordered_map<NodeId, WallSeconds> used;
  {
    std::lock_guard lock(mutex_);
    used.swap(used_);
  }
  if (used.empty()) return false;
  replica_.write(Durability::eventual, [&](ReplicaWriter& writer) {
    for (const auto& [node, when] : used)
      writer.setLastUsed(node, when);
  });
  return true;
}

}  // namespace tulo
