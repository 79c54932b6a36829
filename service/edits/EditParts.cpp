#include "service/edits/EditParts.h"

#include "service/base/Names.h"
#include "service/replica/Journal.h"

namespace tulo::edits {

namespace {

constexpr milliseconds kFolderTick{10};

}  // namespace

WallTime due(const EditParts& parts) {
  return parts.files.quietTime().due();
}

std::string filenameFor(ReplicaReader& reader, const Node& folder, std::string_view name) {
  std::string filename(name);
  // Every spelling of the mount's own has one in it.
  if (name.find('%') == std::string_view::npos || folder.identifier.empty()) return filename;
  for (const Change& change : journal::basedIn(reader, folder.identifier)) {
    const std::string& former = change.base().place.filename;
    if (former == name) return former;
    if (names::shown(former) == name) filename = former;
  }
  return filename;
}

std::optional<Node> childOf(ReplicaWriter& writer, NodeId folder, std::string_view name) {
  const std::optional<NodeId> id = writer.childNamed(folder, name);
  return id ? writer.node(*id) : std::nullopt;
}

void touchFolder(ReplicaWriter& writer, const EditParts& parts, NodeId folder) {
  // No finer than this, so that a storm of changes writes the folder's row now and then only.
  const WallTime tick(parts.files.wallNow().time_since_epoch() / kFolderTick * kFolderTick);
  writer.touch(folder, FileTime::of(tick));
}

}  // namespace tulo::edits
