#include "service/edits/EditParts.h"

#include "service/base/Names.h"

namespace tulo::edits {

namespace {

constexpr milliseconds kFolderTick{10};

}  // namespace

WallTime due(const EditParts& parts) {
  return parts.files.quietTime().due();
}

std::string filenameFor(std::string_view name) {
  return names::filename(name).value_or(std::string(name));
}

std::optional<Node> childOf(ReplicaWriter& writer, NodeId folder, std::string_view name) {
  const std::optional<NodeId> id = writer.childNamed(folder, name);
  return id ? writer.node(*id) : std::nullopt;
}

void touchFolder(ReplicaWriter& writer, const EditParts& parts, NodeId folder) {
  // No finer than this, so that a storm of changes writes the folder's row now and then only.
  const WallTime tick(parts.files.now().time_since_epoch() / kFolderTick * kFolderTick);
  writer.touch(folder, FileTime::of(tick));
}

}  // namespace tulo::edits
