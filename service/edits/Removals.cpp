#include "service/edits/Removals.h"

#include <cerrno>

#include "service/base/FaultPoints.h"
#include "service/edits/Capabilities.h"
#include "service/replica/Journal.h"

namespace tulo {

int Removals::errorOfEmptiness(ReplicaWriter& writer, const Node& folder) {
  if (!folder.identifier.empty() && folder.listed == 0) return EAGAIN;
  return writer.childNodes(folder.id).empty() ? 0 : ENOTEMPTY;
}

int Removals::remove(ReplicaWriter& writer, const Node& node) const {
  if (!allows(node, platform::NSFileProviderItemCapabilitiesAllowsDeleting)) return EACCES;
  const std::optional<Change> known = journal::find(writer, node.id);
  if (node.identifier.empty() && !(known && known->request.isOpen())) {
    journal::erase(writer, node.id);
    writer.detach(node.id, inSeconds(parts_.files.now()));
    return 0;
  }
  Change change = journal::begin(writer, node, edits::due(parts_));
  // What is deleted is the version that is shown, or the one from which that has grown.
  if (!change.hasContents()) change.hostHas({change.base().place, node.contentVersion});
  change.deletedHere();
  journal::put(writer, change);
  writer.takeOut(node.id);
  return 0;
}

int Removals::removeFile(ReplicaWriter& writer, NodeId folder, std::string_view name) const {
  const std::optional<Node> node = edits::childOf(writer, folder, name);
  if (!node) return ENOENT;
  const int error = node->kind == NodeKind::folder ? EISDIR : remove(writer, *node);
  if (error == 0) edits::touchFolder(writer, parts_, folder);
  return error;
}

int Removals::removeFile(NodeId folder, std::string_view name) {
  int error = 0;
  const auto remove = [&](ReplicaWriter& writer) { error = removeFile(writer, folder, name); };
  parts_.replica.write(Durability::eventual, remove, Room::fromReserve);
  faultPoint("unlink.journaled");
  if (error == 0) parts_.files.changed();
  return error;
}

int Removals::removeFolder(ReplicaWriter& writer, NodeId folder, std::string_view name) const {
  const std::optional<Node> node = edits::childOf(writer, folder, name);
  if (!node) return ENOENT;
  if (node->kind != NodeKind::folder) return ENOTDIR;
  int error = errorOfEmptiness(writer, *node);
  if (error == 0) error = remove(writer, *node);
  if (error == 0) edits::touchFolder(writer, parts_, folder);
  return error;
}

int Removals::removeFolder(NodeId folder, std::string_view name) {
  int error = 0;
  const auto remove = [&](ReplicaWriter& writer) { error = removeFolder(writer, folder, name); };
  parts_.replica.write(Durability::eventual, remove, Room::fromReserve);
  faultPoint("rmdir.journaled");
  if (error == 0) parts_.files.changed();
  return error;
}

}  // namespace tulo
