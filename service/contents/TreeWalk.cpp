#include "service/contents/TreeWalk.h"

#include <future>

namespace tulo {

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
