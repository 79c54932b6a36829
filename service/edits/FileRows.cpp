#include "service/edits/FileRows.h"

#include <vector>

#include "service/replica/ContentRows.h"
#include "service/replica/Journal.h"
#include "service/replica/LocalTimes.h"
#include "service/replica/NodeContents.h"

namespace tulo::fileRows {

namespace {

constexpr std::int64_t kBlock = 512;

bool isNoted(const Node& node, const struct stat& status) {
  return node.size == status.st_size && node.blocks == status.st_blocks &&
         node.modified == FileTime::of(status.st_mtim);
}

void noteFile(ReplicaWriter& writer, NodeId node, const struct stat& status) {
  writer.setWritten(node, status.st_size, status.st_blocks, FileTime::of(status.st_mtim));
}

void noteIfDirty(ReplicaWriter& writer, const ContentStore& store, NodeId id) {
  const std::optional<Node> node = writer.node(id);
  if (!node || node->state != ContentState::dirty) return;
  struct stat status = {};
  if (::stat(store.path(node->content).c_str(), &status) != 0 || isNoted(*node, status)) return;
  noteFile(writer, id, status);
}

}  // namespace

void noteWritten(ReplicaWriter& writer, const FileParts& parts, NodeId id, ContentId content,
                 const struct stat& status) {
  const std::optional<Node> node = writer.node(id);
  if (!node || node->content != content) return;
  noteFile(writer, id, status);
  // Not what the node had before: that may have been another file, which is still there.
  const std::int64_t more = contentRows::setWritten(writer, content, status.st_blocks);
  parts.store.room().addUsed(more * kBlock);
  localTimes::note(writer, id);
  journal::postpone(writer, id, parts.quiet.due());
}

void noteAfterRestart(const FileParts& parts) {
  const std::vector<NodeId> dirty =
      parts.replica.read([](ReplicaReader& reader) { return nodeContents::changed(reader); });
  if (dirty.empty()) return;
  const auto note = [&](ReplicaWriter& writer) {
    for (const NodeId id : dirty)
      noteIfDirty(writer, parts.store, id);
  };
  parts.replica.write(Durability::eventual, note, Room::fromReserve);
}

void showCurrent(Entry& entry, Replica& replica) {
  const std::optional<Node> now =
      replica.readBriefly([&](ReplicaReader& reader) { return reader.node(entry.id); });
  if (!now) return;
  entry.size = now->size;
  entry.blocks = now->blocks;
  entry.modified = now->modified;
}

}  // namespace tulo::fileRows
