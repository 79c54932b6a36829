#include "service/edits/Edits.h"

#include <linux/fs.h>

#include <cerrno>

#include "platform/FileProvider.h"
#include "service/base/FaultPoints.h"
#include "service/base/Names.h"
#include "service/mount/RequestLoop.h"
#include "service/replica/ContentRows.h"
#include "service/replica/KeptNodes.h"
#include "service/replica/Links.h"

namespace tulo {

namespace {

using namespace platform;

constexpr NSFileProviderItemCapabilities kEverything =
    NSFileProviderItemCapabilitiesAllowsReading | NSFileProviderItemCapabilitiesAllowsWriting |
    NSFileProviderItemCapabilitiesAllowsReparenting | NSFileProviderItemCapabilitiesAllowsRenaming |
    NSFileProviderItemCapabilitiesAllowsDeleting;
constexpr std::size_t kDeepest = 4096;
// Milliseconds.
constexpr std::int64_t kFolderTick = 10;

bool allows(const Node& node, NSFileProviderItemCapabilities capability) {
  return (node.capabilities & capability) == capability;
}

bool allowsAdding(const Node& folder) {
  return allows(folder, NSFileProviderItemCapabilitiesAllowsAddingSubItems);
}

// The provider's name behind what a program wrote.
std::string filenameFor(std::string_view name) {
  return names::filename(name).value_or(std::string(name));
}

bool isInside(ReplicaWriter& writer, NodeId node, NodeId ancestor) {
  for (std::size_t i = 0; i < kDeepest && node != kNoNode; ++i) {
    if (node == ancestor) return true;
    const std::optional<Node> row = writer.node(node);
    if (!row || node == kRootNode) return false;
    node = row->parent;
  }
  return false;
}

std::optional<Node> childOf(ReplicaWriter& writer, NodeId folder, std::string_view name) {
  const std::optional<NodeId> id = writer.childNamed(folder, name);
  return id ? writer.node(*id) : std::nullopt;
}

// 0 when one may take the other's place, which it then leaves.
int errorOfReplacing(ReplicaWriter& writer, const Node& node, const Node& target) {
  const bool isFolder = node.kind == NodeKind::folder;
  if (target.kind != NodeKind::folder) return isFolder ? ENOTDIR : 0;
  if (!isFolder) return EISDIR;
  if (!target.identifier.empty() && target.listed == 0) return EAGAIN;
  return writer.childNodes(target.id).empty() ? 0 : ENOTEMPTY;
}

}  // namespace

bool staysLocal(ReplicaWriter& writer, const LocalNames& names, NodeId folder,
                std::string_view name) {
  if (names.matches(name)) return true;
  for (std::size_t i = 0; i < kDeepest && folder != kRootNode; ++i) {
    const std::optional<Node> row = writer.node(folder);
    if (!row || !row->identifier.empty()) return false;
    if (names.matches(row->name)) return true;
    folder = row->parent;
  }
  return false;
}

Edits::Edits(Replica& replica, LocalFiles& files, ContentStore& store, OpenFiles& openFiles,
             LocalNames localNames)
    : replica_(replica),
      files_(files),
      store_(store),
      openFiles_(openFiles),
      localNames_(std::move(localNames)) {}

bool Edits::staysHere(ReplicaWriter& writer, NodeId folder, std::string_view name) {
  return staysLocal(writer, localNames_, folder, name);
}

bool Edits::staysHere(ReplicaWriter& writer, const Node& folder, std::string_view name) {
  if (folder.identifier.empty()) return staysHere(writer, folder.id, name);
  return localNames_.matches(name);
}

void Edits::touchFolder(ReplicaWriter& writer, NodeId folder) {
  // No finer than this, so that a storm of changes writes the folder's row now and then only.
  const std::int64_t now = files_.now() / kFolderTick * kFolderTick;
  writer.touch(folder, now / 1000, now % 1000 * 1000000);
}

EditResult Edits::make(NodeId folder, Node node, const Step& added) {
  EditResult result;
  replica_.write(Durability::eventual, [&](ReplicaWriter& writer) {
    const std::optional<Node> parent = writer.node(folder);
    if (!parent || (parent->parent == kNoNode && folder != kRootNode)) {
      result.error = ESTALE;
      return;
    }
    if (!allowsAdding(*parent)) {
      result.error = EACCES;
      return;
    }
    node.parent = folder;
    node.filename = filenameFor(node.name);
    node.capabilities = kEverything;
    node.modified = files_.now() / 1000;
    node.nanoseconds = files_.now() % 1000 * 1000000;
    node.kept = parent->kept;
    if (node.state == ContentState::dirty) node.content = contentRows::next(writer);
    node.id = writer.insert(node);
    if (node.id == kNoNode) {
      result.error = EEXIST;
      return;
    }
    touchFolder(writer, folder);
    added(writer, node);
    if (node.kind != NodeKind::link && !staysHere(writer, *parent, node.name)) {
      Change change = journal::fresh(writer, node.id, due());
      change.contents = node.kind == NodeKind::file;
      journal::put(writer, change);
    }
    result.entry = node;
  });
  faultPoint("create.journaled");
  if (result.error == 0) files_.changed();
  return result;
}

EditResult Edits::makeFile(NodeId folder, std::string_view name, int mode) {
  return makeFile(folder, name, mode, false);
}

EditResult Edits::makeOpenFile(NodeId folder, std::string_view name, int mode) {
  return makeFile(folder, name, mode, true);
}

EditResult Edits::makeFile(NodeId folder, std::string_view name, int mode, bool open) {
  Node node;
  node.kind = NodeKind::file;
  node.name = name;
  node.mode = (mode & 0777) | kModeSet;
  node.state = ContentState::dirty;
  NodeId opened = kNoNode;
  try {
    return make(folder, node, [&](ReplicaWriter& writer, const Node& made) {
      contentRows::add(writer, made.content, made.id, true);
      FileDescriptor contents = store_.create(made.content, made.name);
      if (!open) return;
      files_.openNew(made.id, made.content, std::move(contents));
      opened = made.id;
    });
  } catch (...) {
    // The number may be given to another file.
    if (opened != kNoNode) files_.released(opened);
    throw;
  }
}

EditResult Edits::makeFolder(NodeId folder, std::string_view name, int mode) {
  Node node;
  node.kind = NodeKind::folder;
  node.name = name;
  node.mode = (mode & 0777) | kModeSet;
  return make(folder, node, [](ReplicaWriter& writer, const Node& made) {
    // Whoever lists it need not ask anybody.
    writer.setListed(made.id, 1, "");
  });
}

EditResult Edits::makeLink(NodeId folder, std::string_view name, std::string_view target) {
  Node node;
  node.kind = NodeKind::link;
  node.name = name;
  node.size = static_cast<std::int64_t>(target.size());
  return make(folder, node, [&](ReplicaWriter& writer, const Node& made) {
    links::add(writer, made.id, target);
  });
}

int Edits::readLink(NodeId link, std::string& target) {
  return replica_.read([&](ReplicaReader& reader) {
    const std::optional<std::string> found = links::target(reader, link);
    if (found) target = *found;
    return found ? 0 : EINVAL;
  });
}

// Takes a node out of the tree. What the host has is deleted there later; its row waits for that.
int Edits::removeOne(ReplicaWriter& writer, const Node& node) {
  if (!allows(node, NSFileProviderItemCapabilitiesAllowsDeleting)) return EACCES;
  const std::optional<Change> known = journal::find(writer, node.id);
  if (node.identifier.empty() && !(known && known->sent)) {
    journal::erase(writer, node.id);
    writer.detach(node.id, files_.now() / 1000);
    return 0;
  }
  Change change = journal::begin(writer, node, due());
  change.deleted = true;
  change.contents = false;
  journal::put(writer, change);
  writer.takeOut(node.id);
  return 0;
}

int Edits::removeFile(NodeId folder, std::string_view name) {
  int error = 0;
  const auto remove = [&](ReplicaWriter& writer) {
    const std::optional<Node> node = childOf(writer, folder, name);
    if (!node) {
      error = ENOENT;
      return;
    }
    error = node->kind == NodeKind::folder ? EISDIR : removeOne(writer, *node);
    if (error == 0) touchFolder(writer, folder);
  };
  replica_.write(Durability::eventual, remove, Room::fromReserve);
  faultPoint("unlink.journaled");
  if (error == 0) files_.changed();
  return error;
}

int Edits::removeFolder(NodeId folder, std::string_view name) {
  int error = 0;
  const auto remove = [&](ReplicaWriter& writer) {
    const std::optional<Node> node = childOf(writer, folder, name);
    if (!node || node->kind != NodeKind::folder) {
      error = node ? ENOTDIR : ENOENT;
    } else if (!node->identifier.empty() && node->listed == 0) {
      error = EAGAIN;
    } else if (!writer.childNodes(node->id).empty()) {
      error = ENOTEMPTY;
    } else {
      error = removeOne(writer, *node);
    }
    if (error == 0) touchFolder(writer, folder);
  };
  replica_.write(Durability::eventual, remove, Room::fromReserve);
  faultPoint("rmdir.journaled");
  if (error == 0) files_.changed();
  return error;
}

// Everything in a folder that stayed here until now is new to the host.
void Edits::makeKnown(ReplicaWriter& writer, NodeId id) {
  const std::optional<Node> node = writer.node(id);
  if (!node || node->kind == NodeKind::link || localNames_.matches(node->name)) return;
  if (!node->identifier.empty()) return;
  if (!journal::find(writer, id)) {
    Change change = journal::begin(writer, *node, due());
    change.contents = node->kind == NodeKind::file;
    journal::put(writer, change);
  }
  if (node->kind != NodeKind::folder) return;
  for (const Node& child : writer.childNodes(id))
    makeKnown(writer, child.id);
}

// False for what the host does not know and is not to know.
bool Edits::noteChange(ReplicaWriter& writer, const Node& node) {
  if (journal::again(writer, node.id, due())) return true;
  if (node.identifier.empty()) return false;
  journal::put(writer, journal::begin(writer, node, due()));
  return true;
}

void Edits::place(ReplicaWriter& writer, Node node, NodeId folder, std::string_view name) {
  // Before the row says something else: a change that is new takes its base from it.
  const bool known = noteChange(writer, node);
  if (node.state == ContentState::dirty) files_.nameLater(node.content, std::string(name));
  if (node.parent == folder) {
    writer.setName(node.id, std::string(name), filenameFor(name));
    if (!known && !staysHere(writer, folder, name)) makeKnown(writer, node.id);
    return;
  }
  node.parent = folder;
  node.name = name;
  node.filename = filenameFor(name);
  const std::optional<Node> parent = writer.node(folder);
  node.kept = node.pinned || (parent && parent->kept);
  writer.update(node);
  if (node.kind == NodeKind::folder) keptNodes::setBelow(writer, node.id, node.kept);
  if (!known && !staysHere(writer, folder, name)) makeKnown(writer, node.id);
}

int Edits::rename(ReplicaWriter& writer, NodeId folder, std::string_view name, NodeId newFolder,
                  std::string_view newName, unsigned flags) {
  const std::optional<Node> node = childOf(writer, folder, name);
  const std::optional<Node> target = childOf(writer, newFolder, newName);
  const std::optional<Node> newParent = writer.node(newFolder);
  if (!node || !newParent) return ENOENT;
  if (flags != 0 && flags != RENAME_EXCHANGE && flags != RENAME_NOREPLACE) return EINVAL;
  const bool exchange = flags == RENAME_EXCHANGE;
  if (exchange && !target) return ENOENT;
  if (flags == RENAME_NOREPLACE && target) return EEXIST;
  if (target && target->id == node->id) return 0;
  if (node->kind == NodeKind::folder && isInside(writer, newFolder, node->id)) return EINVAL;
  if (exchange && target->kind == NodeKind::folder && isInside(writer, folder, target->id)) {
    return EINVAL;
  }
  const auto mayMove = [&](const Node& moving) {
    return (name == newName || allows(moving, NSFileProviderItemCapabilitiesAllowsRenaming)) &&
           (folder == newFolder || allows(moving, NSFileProviderItemCapabilitiesAllowsReparenting));
  };
  if (!mayMove(*node) || (exchange && !mayMove(*target))) return EACCES;
  if (folder != newFolder && !allowsAdding(*newParent)) return EACCES;
  if (exchange) {
    writer.parkName(target->id);
    place(writer, *node, newFolder, newName);
    place(writer, *target, folder, name);
    return 0;
  }
  if (target) {
    int error = errorOfReplacing(writer, *node, *target);
    if (error == 0) error = removeOne(writer, *target);
    if (error != 0) return error;
  }
  place(writer, *node, newFolder, newName);
  return 0;
}

// What takes the place of another file must not be lost in a power cut together with that one: the
// row may reach the disk before the bytes do, and then the host would get what is left of them.
void Edits::forceReplacement(NodeId folder, std::string_view name, NodeId newFolder,
                             std::string_view newName) {
  const ContentId content = replica_.readBriefly([&](ReplicaReader& reader) {
    const NameLookup target = reader.lookup(newFolder, newName);
    if (!target.entry || target.entry->kind != NodeKind::file) return kNoContent;
    const NameLookup source = reader.lookup(folder, name);
    const auto node = source.entry ? reader.node(source.entry->id) : std::nullopt;
    return node && node->state == ContentState::dirty ? node->content : kNoContent;
  });
  if (content == kNoContent) return;
  RequestLoop::passTurn();
  store_.makeDurable(content);
}

int Edits::rename(NodeId folder, std::string_view name, NodeId newFolder, std::string_view newName,
                  unsigned flags) {
  forceReplacement(folder, name, newFolder, newName);
  int error = 0;
  replica_.write(Durability::eventual, [&](ReplicaWriter& writer) {
    error = rename(writer, folder, name, newFolder, newName, flags);
    if (error != 0) return;
    touchFolder(writer, folder);
    if (folder != newFolder) touchFolder(writer, newFolder);
  });
  faultPoint("rename.journaled");
  if (error == 0) files_.changed();
  return error;
}

int Edits::setMode(NodeId node, int mode) {
  replica_.write(Durability::eventual,
                 [&](ReplicaWriter& writer) { writer.setMode(node, (mode & 0777) | kModeSet); });
  return 0;
}

int Edits::mayWrite(NodeId id) {
  const auto node = replica_.readBriefly([&](ReplicaReader& reader) { return reader.node(id); });
  if (!node) return ESTALE;
  if (node->kind != NodeKind::file) return node->kind == NodeKind::folder ? EISDIR : ELOOP;
  return allows(*node, NSFileProviderItemCapabilitiesAllowsWriting) ? 0 : EACCES;
}

}  // namespace tulo
