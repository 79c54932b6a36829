#include "service/edits/Renames.h"

#include <linux/fs.h>

#include <cerrno>

#include "service/base/FaultPoints.h"
#include "service/base/Names.h"
#include "service/edits/Capabilities.h"
#include "service/edits/StaysLocal.h"
#include "service/replica/Ancestors.h"
#include "service/replica/Journal.h"
#include "service/replica/KeptNodes.h"

namespace tulo {

namespace {

bool mayMove(const Node& node, const Move& move) {
  using namespace platform;
  return (move.name == move.newName ||
          allows(node, NSFileProviderItemCapabilitiesAllowsRenaming)) &&
         (move.folder == move.newFolder ||
          allows(node, NSFileProviderItemCapabilitiesAllowsReparenting));
}

int errorOfFlags(unsigned flags, bool hasTarget) {
  if (flags != 0 && flags != RENAME_EXCHANGE && flags != RENAME_NOREPLACE) return EINVAL;
  if (flags == RENAME_EXCHANGE && !hasTarget) return ENOENT;
  return flags == RENAME_NOREPLACE && hasTarget ? EEXIST : 0;
}

// 0 when a folder would not come into itself.
int errorOfCircle(ReplicaWriter& writer, const Move& move, const Node& node, const Node* other) {
  if (node.kind == NodeKind::folder && isInside(writer, move.newFolder, node.id)) return EINVAL;
  if (!other || other->kind != NodeKind::folder) return 0;
  return isInside(writer, move.folder, other->id) ? EINVAL : 0;
}

// 0 when both allow it: the one that moves, and the one that it changes places with.
int errorOfCapabilities(const Move& move, const Node& node, const Node* other,
                        const Node& newParent) {
  if (!mayMove(node, move) || (other && !mayMove(*other, move))) return EACCES;
  return move.folder != move.newFolder && !allowsAdding(newParent) ? EACCES : 0;
}

// 0 when one may take the other's place, which it then leaves.
int errorOfReplacing(ReplicaWriter& writer, const Node& node, const Node& target) {
  const bool isFolder = node.kind == NodeKind::folder;
  if (target.kind != NodeKind::folder) return isFolder ? ENOTDIR : 0;
  return isFolder ? Removals::errorOfEmptiness(writer, target) : EISDIR;
}

// The contents that were written here and are to take the place of another file; kNoContent when
// there is no such file, or the host has the contents.
ContentId replacingContent(ReplicaReader& reader, const Move& move) {
  const NameLookup target = reader.lookup(move.newFolder, move.newName);
  if (!target.entry || target.entry->kind != NodeKind::file) return kNoContent;
  const NameLookup source = reader.lookup(move.folder, move.name);
  const auto node = source.entry ? reader.node(source.entry->id) : std::nullopt;
  return node && node->state == ContentState::dirty ? node->content : kNoContent;
}

}  // namespace

// What takes another's place gets its name at the host as well, and what keeps the name that the
// mount had to give it keeps the one at the host; any other name is meant as it is written.
Renames::Name Renames::nameAfter(ReplicaReader& reader, const Move& move, const Node& node,
                                 const Node& newParent, const Node* target) {
  const std::string shown(move.newName);
  if (target) return {shown, target->filename};
  const bool keepsName = node.name == shown && node.filename != shown;
  const std::string plain = names::shown(node.filename);
  if (keepsName && (plain == shown || !reader.childNamed(newParent.id, plain))) {
    return {shown, node.filename};
  }
  return {shown, edits::filenameFor(reader, newParent, shown)};
}

// Everything in a folder that stayed here until now is new to the host.
void Renames::makeKnown(ReplicaWriter& writer, NodeId id) {
  const std::optional<Node> node = writer.node(id);
  if (!node || node->kind == NodeKind::link || parts_.localNames.matches(node->name)) return;
  if (!node->identifier.empty()) return;
  if (!journal::find(writer, id)) {
    Change change = journal::begin(writer, *node, edits::due(parts_));
    if (node->kind == NodeKind::file) change.contentsChanged();
    journal::put(writer, change);
  }
  if (node->kind != NodeKind::folder) return;
  for (const Node& child : writer.childNodes(id))
    makeKnown(writer, child.id);
}

// False for what the host does not know and is not to know.
bool Renames::noteChange(ReplicaWriter& writer, const Node& node) {
  if (journal::again(writer, node.id, edits::due(parts_))) return true;
  if (node.identifier.empty()) return false;
  journal::put(writer, journal::begin(writer, node, edits::due(parts_)));
  return true;
}

void Renames::place(ReplicaWriter& writer, Node node, NodeId folder, const Name& name) {
  // Before the row says something else: a change that is new takes its base from it.
  const bool known = noteChange(writer, node);
  if (node.state == ContentState::dirty) parts_.files.nameLater(node.content, name.shown);
  if (node.parent == folder) {
    writer.setName(node.id, name.shown, name.filename);
  } else {
    node.parent = folder;
    node.name = name.shown;
    node.filename = name.filename;
    const std::optional<Node> parent = writer.node(folder);
    node.kept = node.pinned || (parent && parent->kept);
    writer.update(node);
    if (node.kind == NodeKind::folder) keptNodes::setBelow(writer, node.id, node.kept);
  }
  if (!known && !staysLocal(writer, parts_.localNames, folder, name.shown))
    makeKnown(writer, node.id);
}

int Renames::replace(ReplicaWriter& writer, const Node& node, const Node& target) {
  const int error = errorOfReplacing(writer, node, target);
  return error == 0 ? removals_.remove(writer, target) : error;
}

int Renames::carryOut(ReplicaWriter& writer, const Move& move) {
  const std::optional<Node> node = edits::childOf(writer, move.folder, move.name);
  const std::optional<Node> target = edits::childOf(writer, move.newFolder, move.newName);
  const std::optional<Node> newParent = writer.node(move.newFolder);
  if (!node || !newParent) return ENOENT;
  if (const int error = errorOfFlags(move.flags, target.has_value())) return error;
  if (target && target->id == node->id) return 0;
  const Node* other = move.flags == RENAME_EXCHANGE ? &*target : nullptr;
  if (const int error = errorOfCircle(writer, move, *node, other)) return error;
  if (const int error = errorOfCapabilities(move, *node, other, *newParent)) return error;
  if (other) {
    writer.parkName(other->id);
    place(writer, *node, move.newFolder, {std::string(move.newName), other->filename});
    place(writer, *other, move.folder, {std::string(move.name), node->filename});
    return 0;
  }
  const Name name = nameAfter(writer, move, *node, *newParent, target ? &*target : nullptr);
  if (const int error = target ? replace(writer, *node, *target) : 0) return error;
  place(writer, *node, move.newFolder, name);
  return 0;
}

// What takes the place of another file must not be lost in a power cut together with that one: the
// row may reach the disk before the bytes do, and then the host would get what is left of them.
void Renames::forceReplacement(const Move& move) {
  const ContentId content = parts_.replica.readBriefly(
      [&](ReplicaReader& reader) { return replacingContent(reader, move); });
  if (content == kNoContent) return;
  parts_.beforeWaiting();
  parts_.store.force(content);
}

int Renames::rename(const Move& move) {
  forceReplacement(move);
  int error = 0;
  parts_.replica.write(Durability::eventual, [&](ReplicaWriter& writer) {
    error = carryOut(writer, move);
    if (error != 0) return;
    edits::touchFolder(writer, parts_, move.folder);
    if (move.folder != move.newFolder) edits::touchFolder(writer, parts_, move.newFolder);
  });
  faultPoint("rename.journaled");
  if (error == 0) parts_.files.changed();
  return error;
}

}  // namespace tulo
