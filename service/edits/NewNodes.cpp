#include "service/edits/NewNodes.h"

#include <cerrno>

#include "service/base/FaultPoints.h"
#include "service/edits/Capabilities.h"
#include "service/edits/StaysLocal.h"
#include "service/replica/ContentRows.h"
#include "service/replica/Journal.h"
#include "service/replica/Links.h"

namespace tulo {

namespace {

Node newFile(std::string_view name, int mode) {
  Node node;
  node.kind = NodeKind::file;
  node.name = name;
  node.mode = (mode & 0777) | kModeSet;
  node.state = ContentState::dirty;
  return node;
}

}  // namespace

EditResult NewNodes::make(NodeId folder, Node node, const Step& added) {
  EditResult result;
  parts_.replica.write(Durability::eventual, [&](ReplicaWriter& writer) {
    result = insert(writer, folder, node, added);
  });
  faultPoint("create.journaled");
  if (result.error == 0) parts_.files.changed();
  return result;
}

EditResult NewNodes::insert(ReplicaWriter& writer, NodeId folder, Node node, const Step& added) {
  const std::optional<Node> parent = writer.node(folder);
  if (!parent || (parent->parent == kNoNode && folder != kRootNode)) return {ESTALE, {}};
  if (!allowsAdding(*parent)) return {EACCES, {}};
  node.parent = folder;
  node.filename = edits::filenameFor(writer, *parent, node.name);
  node.capabilities = kEverything;
  node.modified = FileTime::of(parts_.files.wallNow());
  node.kept = parent->kept;
  if (node.state == ContentState::dirty) node.content = contentRows::next(writer);
  node.id = writer.insert(node);
  if (node.id == kNoNode) return {EEXIST, {}};
  edits::touchFolder(writer, parts_, folder);
  added(writer, node);
  note(writer, *parent, node);
  return {0, node};
}

void NewNodes::note(ReplicaWriter& writer, const Node& parent, const Node& node) {
  if (node.kind == NodeKind::link) return;
  if (staysLocal(writer, parts_.localNames, parent, node.name)) return;
  Change change = journal::fresh(writer, node.id, edits::due(parts_));
  if (node.kind == NodeKind::file) change.contentsChanged();
  journal::put(writer, change);
}

EditResult NewNodes::makeFile(NodeId folder, std::string_view name, int mode) {
  return make(folder, newFile(name, mode), [&](ReplicaWriter& writer, const Node& made) {
    contentRows::add(writer, made.content, made.id, true);
    parts_.store.create(made.content, made.name);
  });
}

EditResult NewNodes::makeOpenFile(NodeId folder, std::string_view name, int mode) {
  NodeId opened = kNoNode;
  try {
    return make(folder, newFile(name, mode), [&](ReplicaWriter& writer, const Node& made) {
      contentRows::add(writer, made.content, made.id, true);
      parts_.files.openNew(made.id, made.content, parts_.store.create(made.content, made.name));
      opened = made.id;
    });
  } catch (...) {
    // The number may be given to another file.
    if (opened != kNoNode) parts_.files.released(opened);
    throw;
  }
}

EditResult NewNodes::makeFolder(NodeId folder, std::string_view name, int mode) {
  Node node;
  node.kind = NodeKind::folder;
  node.name = name;
  node.mode = (mode & 0777) | kModeSet;
  return make(folder, node, [](ReplicaWriter& writer, const Node& made) {
    // Whoever lists it need not ask anybody.
    writer.setListed(made.id, 1, "");
  });
}

EditResult NewNodes::makeLink(NodeId folder, std::string_view name, std::string_view target) {
  Node node;
  node.kind = NodeKind::link;
  node.name = name;
  node.size = static_cast<std::int64_t>(target.size());
  return make(folder, node, [&](ReplicaWriter& writer, const Node& made) {
    links::add(writer, made.id, target);
  });
}

}  // namespace tulo
