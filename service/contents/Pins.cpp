#include "service/contents/Pins.h"

#include "service/replica/KeptNodes.h"

#include <cerrno>
#include <future>

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
    writer.setPinned(id, pinned);
    writer.setKept(id, kept);
    if (node->kind == NodeKind::folder) keptNodes::setBelow(writer, id, kept);
  });
  if (!found) return ENOENT;
  folders_.setWatched(keptFolders());
  return 0;
}

std::vector<NodeId> TreeWalk::files(NodeId top, const std::function<bool(std::size_t)>& goOn) {
  return walk(top, true, goOn);
}

std::vector<NodeId> TreeWalk::knownFiles(NodeId top) {
  return walk(top, false, [](std::size_t) { return true; });
}

std::vector<NodeId> TreeWalk::walk(NodeId top, bool list,
                                   const std::function<bool(std::size_t)>& goOn) {
  std::vector<NodeId> found;
  std::vector<NodeId> folders;
  const auto entry = replica_.read([&](ReplicaReader& reader) { return reader.entry(top); });
  if (!entry) return found;
  (entry->kind == NodeKind::folder ? folders : found).push_back(top);
  while (!folders.empty() && goOn(found.size())) {
    const NodeId folder = folders.back();
    folders.pop_back();
    if (list) {
      std::promise<void> done;
      sync_.refresh(folder, [&done](int) { done.set_value(); });
      done.get_future().wait();
    }
    replica_.read([&](ReplicaReader& reader) {
      reader.children(folder, kNoNode, [&](const Entry& child, std::string_view) {
        (child.kind == NodeKind::folder ? folders : found).push_back(child.id);
        return true;
      });
    });
  }
  return found;
}

}  // namespace tulo
