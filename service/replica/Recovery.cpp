#include "service/replica/Recovery.h"

#include <sys/stat.h>

#include "platform/FileProvider.h"
#include "service/base/FaultPoints.h"
#include "service/base/MarkedName.h"
#include "service/replica/ContentInventory.h"
#include "service/replica/ContentRows.h"
#include "service/replica/Journal.h"
#include "service/replica/JournalTree.h"
#include "service/replica/NodeContents.h"

namespace tulo {

namespace {

constexpr std::uint64_t kAllCapabilities = 47;

NodeId insertLocal(ReplicaWriter& writer, Node node) {
  node.capabilities = kAllCapabilities;
  node.filename = node.name;
  node.modified = {secondsNow(), {}};
  return writer.insert(node);
}

NodeId insertUnsent(ReplicaWriter& writer, Node node) {
  node.filename = node.name;
  node.id = insertLocal(writer, node);
  Change change = journal::begin(writer, node, WallTime{});
  if (node.kind == NodeKind::file) change.contentsChanged();
  journal::put(writer, change);
  return node.id;
}

// Whether the host is to hear of it.
enum class Told { yes, no };

// What had only local things in it until now is to be known at the host.
void makeKnown(ReplicaWriter& writer, NodeId folder) {
  const std::optional<Node> node = writer.node(folder);
  if (!node->identifier.empty() || journal::find(writer, folder)) return;
  journal::put(writer, journal::begin(writer, *node, WallTime{}));
}

NodeId recoveryFolder(ReplicaWriter& writer, Told told) {
  for (unsigned i = 1;; ++i) {
    const std::string name =
        i == 1 ? kRecoveryFolder : kRecoveryFolder + (" (" + std::to_string(i) + ")");
    const std::optional<NodeId> known = writer.childNamed(kRootNode, name);
    if (known && writer.node(*known)->kind == NodeKind::folder) {
      if (told == Told::yes) makeKnown(writer, *known);
      return *known;
    }
    if (known) continue;
    Node folder;
    folder.kind = NodeKind::folder;
    folder.parent = kRootNode;
    folder.name = name;
    const NodeId id =
        told == Told::yes ? insertUnsent(writer, folder) : insertLocal(writer, folder);
    writer.setListed(id, 1, "");
    return id;
  }
}

std::string freeName(ReplicaWriter& writer, NodeId folder, const std::string& name) {
  std::string candidate = name;
  for (unsigned i = 2; writer.childNamed(folder, candidate); ++i) {
    candidate = markedName(name, " (" + std::to_string(i) + ")");
  }
  return candidate;
}

}  // namespace

std::vector<Rescued> rescueLocal(ReplicaWriter& writer, NodeId id) {
  std::vector<Rescued> result;
  for (const NodeId local : journal::localBelow(writer, id)) {
    std::optional<Node> node = writer.node(local);
    const NodeId folder = recoveryFolder(writer, Told::no);
    Rescued rescued{node->parent, node->name, folder, freeName(writer, folder, node->name)};
    node->parent = folder;
    node->name = node->filename = rescued.name;
    writer.update(*node);
    // Of what the host had under another name this is all that is left.
    if (!node->identifier.empty()) {
      writer.clearIdentifier(local);
      journal::erase(writer, local);
      nodeContents::markDirtyIfAny(writer, local);
    }
    result.push_back(std::move(rescued));
  }
  return result;
}

void rescueChanged(ReplicaWriter& writer, NodeId id) {
  rescueLocal(writer, id);
  for (NodeId changed : journal::changedContentsBelow(writer, id)) {
    std::optional<Node> node = writer.node(changed);
    const NodeId folder = recoveryFolder(writer, Told::yes);
    node->parent = folder;
    node->name = freeName(writer, folder, node->name);
    node->filename = node->name;
    writer.update(*node);
    writer.clearIdentifier(changed);
    Change change = journal::begin(writer, *node, WallTime{});
    change.contentsChanged();
    change.hostHasNothing();
    change.request.hadNoEffect();
    journal::put(writer, change);
  }
}

std::size_t recoverContents(Replica& replica, ContentStore& store) {
  const std::vector<inventory::NamedContents> files = inventory::named(store);
  const ContentId highest = inventory::highestNumber(store);
  replica.write(Durability::durable, [&](ReplicaWriter& writer) {
    contentRows::skip(writer, ContentId(highest.number() + 1));
    if (files.empty()) return;
    const NodeId folder = recoveryFolder(writer, Told::yes);
    for (const inventory::NamedContents& file : files) {
      struct stat status = {};
      if (::stat(file.path.c_str(), &status) != 0) continue;
      Node node;
      node.parent = folder;
      node.name = freeName(writer, folder, file.name);
      node.size = status.st_size;
      const NodeId id = insertUnsent(writer, node);
      nodeContents::recover(writer, id, file.content, node.size, status.st_blocks);
    }
    faultPoint("recovery.inserted");
  });
  return files.size();
}

}  // namespace tulo
