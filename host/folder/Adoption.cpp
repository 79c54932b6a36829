#include "host/folder/Adoption.h"

#include <utility>

#include "host/base/HostError.h"

namespace tulo::host {

Adoption::Adopted Adoption::adopt(const std::string& parent, const std::string& name,
                                  const EntryStat& stat) {
  if (expectsIntents_) {
    if (auto adopted = completeIntent(parent, name, stat)) return *std::move(adopted);
  }
  if (auto moved = movedNode(stat)) return moveHere(*std::move(moved), parent, name, stat);
  const Node node{ulids_.next(), parent, name, stat.isFolder, Fingerprint::of(stat)};
  index_.add(node, name);
  return {node.ulid, std::nullopt};
}

std::optional<Adoption::Adopted> Adoption::completeIntent(const std::string& parent,
                                                          const std::string& name,
                                                          const EntryStat& stat) {
  const auto intent = index_.intents().find(Fingerprint::of(stat));
  if (!intent || intent->parent != parent || intent->diskName != name) return std::nullopt;
  auto node = index_.nodes().node(intent->ulid);
  if (node && node->isFolder != stat.isFolder) return std::nullopt;
  if (node) {
    index_.place(node->ulid, parent, name, intent->shownName);
    updateIfChanged(*node, stat);
  } else {
    index_.add({intent->ulid, parent, name, stat.isFolder, Fingerprint::of(stat)},
               intent->shownName);
  }
  return Adopted{intent->ulid, std::nullopt};
}

std::optional<Node> Adoption::movedNode(const EntryStat& stat) {
  for (Node& node : index_.nodes().nodesWithInode(stat.inode)) {
    if (node.isFolder != stat.isFolder || node.fingerprint.born != stat.born) continue;
    // Without a time of birth an inode that was used again looks like the file before it.
    if (stat.born == DiskTime() && !node.isUnchanged(stat)) continue;
    // Whatever is in its old place keeps the identifier: a second name of the same file, or the
    // new contents that an editor has put there after moving the old ones aside.
    if (hasLeft(node)) return node;
  }
  return std::nullopt;
}

bool Adoption::hasLeft(const Node& node) {
  try {
    return !places_.hasEntryOf(node);
  } catch (const OperationError&) {
    // Of what is in a folder that cannot be read nothing is believed.
    return false;
  }
}

Adoption::Adopted Adoption::moveHere(Node node, const std::string& parent, const std::string& name,
                                     const EntryStat& stat) {
  Adopted adopted{node.ulid, std::nullopt};
  if (node.isFolder) adopted.displaced = detach(parent, node.ulid);
  const std::string shown = node.diskName == name ? index_.rows().nameOf(node.ulid) : name;
  index_.place(node.ulid, parent, name, shown);
  updateIfChanged(node, stat);
  return adopted;
}

// On the disk nothing lies within itself: where `ulid` was known to be below `ancestor`, its branch
// has left.
std::optional<std::string> Adoption::detach(const std::string& ulid, const std::string& ancestor) {
  NodeStore& nodes = index_.nodes();
  if (!nodes.isWithin(ulid, ancestor)) return std::nullopt;
  std::string branch = ulid;
  for (auto node = nodes.node(branch); node && node->parent != ancestor;
       node = nodes.node(branch)) {
    branch = node->parent;
  }
  nodes.displace(branch);
  return branch;
}

void Adoption::updateIfChanged(Node& node, const EntryStat& stat) {
  if (node.isUnchanged(stat)) return;
  node.fingerprint = Fingerprint::of(stat);
  index_.update(node);
}

}  // namespace tulo::host
