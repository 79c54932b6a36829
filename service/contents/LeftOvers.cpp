#include "service/contents/LeftOvers.h"

#include <optional>

#include "service/base/Time.h"
#include "service/contents/Blocks.h"
#include "service/replica/ContentRows.h"
#include "service/replica/DetachedNodes.h"
#include "service/replica/JournalTree.h"
#include "service/replica/Recovery.h"

namespace tulo {

namespace {

constexpr std::int64_t kBatch = 64;

// An item that moved between two listings is back long before.
constexpr seconds kDetached{60};

WallSeconds longAgo() {
  return steadySeconds() - kDetached;
}

bool isInTree(ReplicaReader& reader, NodeId id) {
  const std::optional<OpenLookup> row = reader.openLookup(id);
  return row && row->parent != kNoNode;
}

}  // namespace

// Whether they are still unused is asked in the transaction that removes them: meanwhile a node may
// have got them. The file goes before the commit: a row without a file is removed again, a file
// without a row never would be.
void LeftOvers::remove(const std::vector<ContentId>& contents) {
  std::int64_t freed = 0;
  const auto removeUnused = [&](ReplicaWriter& writer) {
    freed = 0;
    for (ContentId content : contents) {
      if (store_.incoming().has(content)) continue;
      const std::optional<std::int64_t> blocks = contentRows::remove(writer, content);
      if (!blocks) continue;
      store_.remove(content);
      freed += *blocks;
    }
  };
  replica_.write(Durability::eventual, removeUnused, Room::fromReserve);
  store_.room().addUsed(-bytesIn(freed));
}

void LeftOvers::start() {
  const auto cap = [](ReplicaWriter& writer) { detachedNodes::capTimes(writer, steadySeconds()); };
  replica_.write(Durability::eventual, cap, Room::fromReserve);
}

bool LeftOvers::step() {
  const bool removed = removeContents();
  return removeNodes(detachedNodes()) || removed;
}

bool LeftOvers::removeContents() {
  const auto isWanted = [this](ContentId content) {
    return store_.incoming().has(content) || openFiles_.isContentOpen(content);
  };
  // However many are open, they hide nothing of the rest.
  std::vector<ContentId> unused;
  replica_.read([&](ReplicaReader& reader) {
    for (ContentId last = kNoContent; unused.empty();) {
      unused = contentRows::unused(reader, last, kBatch);
      if (unused.empty()) return;
      last = unused.back();
      std::erase_if(unused, isWanted);
    }
  });
  if (unused.empty()) return false;
  remove(unused);
  return true;
}

std::vector<NodeId> LeftOvers::detachedNodes() {
  const bool isFull = store_.room().diskShortage(0) > 0;
  return replica_.read([&](ReplicaReader& reader) {
    auto found = closedOf(reader, [&](NodeId after) {
      return detachedNodes::since(reader, longAgo(), after, kBatch);
    });
    if (!found.empty() || !isFull) return found;
    // What no item of the host's is cannot come back; whoever empties a full disk wants room now.
    return closedOf(reader,
                    [&](NodeId after) { return detachedNodes::unknown(reader, after, kBatch); });
  });
}

std::vector<NodeId> LeftOvers::closedOf(ReplicaReader& reader, const Page& page) {
  const std::vector<NodeId> written = openFiles_.allOpenForWriting();
  std::vector<NodeId> found;
  for (NodeId last = kNoNode; found.empty();) {
    found = page(last);
    if (found.empty()) break;
    last = found.back();
    std::erase_if(found, [&](NodeId id) {
      return openFiles_.isOpen(id) || journal::isAnyWithin(reader, id, written);
    });
  }
  return found;
}

bool LeftOvers::removeNodes(const std::vector<NodeId>& nodes) {
  if (nodes.empty()) return false;
  const ExclusiveLock gate(openFiles_.gate());
  bool any = false;
  const std::vector<NodeId> written = openFiles_.allOpenForWriting();
  const auto purge = [&](ReplicaWriter& writer) {
    for (NodeId id : nodes) {
      if (openFiles_.isOpen(id) || journal::isAnyWithin(writer, id, written)) continue;
      rescueChanged(writer, id);
      any = true;
      // It was itself what had to be rescued.
      if (isInTree(writer, id)) continue;
      writer.detachChildren(id, longAgo());
      writer.remove(id);
    }
  };
  replica_.write(Durability::eventual, purge, Room::fromReserve);
  return any;
}

}  // namespace tulo
