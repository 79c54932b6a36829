#include "service/contents/Pins.h"

#include <cerrno>

#include "service/replica/KeptNodes.h"

namespace tulo {

std::vector<NodeId> Pins::keptFolders() {
  return replica_.read([](ReplicaReader& reader) { return keptNodes::folders(reader); });
}

void Pins::start() {
  folders_.setWatched(keptFolders());
}

int Pins::setPinned(NodeId id, bool pinned) {
  bool found = false;
  replica_.write(Durability::durable, [&](ReplicaWriter& writer) {
    const std::optional<Node> node = writer.node(id);
    found = node.has_value();
    if (!found) return;
    const std::optional<Node> parent =
        node->parent == kNoNode ? std::nullopt : writer.node(node->parent);
    const bool kept = pinned || (parent && parent->kept);
    keptNodes::setPinned(writer, id, pinned);
    keptNodes::set(writer, id, kept);
    if (node->kind == NodeKind::folder) keptNodes::setBelow(writer, id, kept);
  });
  if (!found) return ENOENT;
  folders_.setWatched(keptFolders());
  return 0;
}

}  // namespace tulo
