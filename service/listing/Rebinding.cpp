#include "service/listing/Rebinding.h"

#include <algorithm>
#include <utility>

#include "service/base/ServiceLog.h"
#include "service/listing/Likeness.h"
#include "service/replica/Journal.h"

namespace tulo {

bool Rebinding::isMissing(const std::string& identifier) const {
  return !identifier.empty() && !listed_.contains(identifier) && !newer_.contains(identifier);
}

void Rebinding::addChild(Node& child) {
  if (child.identifier.empty() && child.kind != NodeKind::folder) return;
  std::optional<Change> change = journal::find(writer_, child.id);
  std::string name = child.filename;
  if (child.identifier.empty()) {
    // Made here, or made again because the host deleted it: one folder of both.
    const bool isFree = change && !change->base().isPlaced() && !change->request.isOpen();
    if (!isFree) return;
  } else if (change) {
    // The host has it elsewhere.
    if (change->base().place.parent != folder_.identifier) return;
    name = change->base().place.filename;
  }
  candidates_.try_emplace(std::move(name), Candidate{child, std::move(change), &child});
}

// What was moved away from the folder here, or deleted.
void Rebinding::addChange(const Change& change) {
  const std::optional<Node> node = writer_.node(change.node());
  if (!node || node->parent == folder_.id || !isMissing(node->identifier)) return;
  candidates_.try_emplace(change.base().place.filename, Candidate{*node, change});
}

void Rebinding::collect(std::vector<Node>& children, const Listing& listing) {
  for (const ItemRecord& item : listing.items)
    listed_.insert(item.identifier);
  for (Node& child : children) {
    if (child.identifier.empty() || isMissing(child.identifier)) addChild(child);
  }
  for (const Change& change : journal::basedIn(writer_, folder_.identifier))
    addChange(change);
}

bool Rebinding::isBeingMade(const ItemRecord& item) {
  return !journal::sentTo(writer_, folder_.identifier, item.filename).empty();
}

bool Rebinding::fits(const Candidate& candidate, const ItemRecord& item) {
  if (candidate.node.kind != item.kind || newer_.contains(item.identifier)) return false;
  if (writer_.nodeFor(item.identifier) || isBeingMade(item)) return false;
  // New contents stand beside those of any other file. A new name, or a deletion, was meant for
  // that file alone.
  if (!candidate.change || candidate.change->hasContents()) return true;
  const Likeness likeness = likenessOf(candidate.node, item, store_);
  // Before it is deleted the bytes are compared, with those that are here.
  const bool tells = !candidate.change->isDeleted() || candidate.node.content != kNoContent;
  if (likeness == Likeness::same || (likeness == Likeness::possible && tells)) return true;
  serviceLog().info(
      "%{public}@ is another file at the host now; what was done to the former one "
      "is not done to it",
      {item.filename});
  return false;
}

// The version of the item that the row may stand for.
std::string Rebinding::versionOf(const Candidate& candidate, const ItemRecord& item) const {
  const Node& node = candidate.node;
  if (node.kind != NodeKind::file) return item.contentVersion;
  if (candidate.change && candidate.change->hasContents()) return node.contentVersion;
  const bool isSame = likenessOf(node, item, store_) == Likeness::same;
  const bool isKept = node.contentVersion == item.contentVersion || node.content == kNoContent;
  return isSame && isKept ? item.contentVersion : Base::kOfAnotherItem;
}

void Rebinding::rebase(Change& change, const ItemRecord& item, const std::string& version) {
  // What is new contents of the item, or takes its place once it is deleted, was not made from it.
  const bool isOther = item.kind == NodeKind::file && (change.hasContents() || change.isDeleted());
  change.hostHas({{folder_.identifier, item.filename}, isOther ? Base::kOfAnotherItem : version});
  journal::put(writer_, change);
}

void Rebinding::take(Candidate& candidate, const ItemRecord& item) {
  const Node& node = candidate.node;
  const std::string version = versionOf(candidate, item);
  if (node.kind == NodeKind::folder) {
    if (!node.identifier.empty()) {
      journal::folderBecame(writer_, node.identifier, item.identifier);
    }
    writer_.setListed(node.id, node.listed, "");
  } else {
    writer_.setContentVersion(node.id, version);
  }
  writer_.setIdentifier(node.id, item.identifier);
  if (candidate.change) rebase(*candidate.change, item, version);
  if (!candidate.child) return;
  candidate.child->identifier = item.identifier;
  if (node.kind == NodeKind::file) candidate.child->contentVersion = version;
}

bool Rebinding::hasNews(const std::vector<Node>& children, const Listing& listing) {
  std::unordered_set<std::string_view> known;
  known.reserve(children.size());
  for (const Node& child : children)
    known.insert(child.identifier);
  return std::any_of(listing.items.begin(), listing.items.end(),
                     [&](const ItemRecord& item) { return !known.contains(item.identifier); });
}

std::vector<NodeId> Rebinding::bind(std::vector<Node>& children, const Listing& listing) {
  std::vector<NodeId> folders;
  if (children.empty() && journal::isEmpty(writer_)) return folders;
  if (!hasNews(children, listing)) return folders;
  collect(children, listing);
  if (candidates_.empty()) return folders;
  for (const ItemRecord& item : listing.items) {
    const auto found = candidates_.find(item.filename);
    if (found == candidates_.end() || !fits(found->second, item)) continue;
    take(found->second, item);
    if (item.kind == NodeKind::folder) folders.push_back(found->second.node.id);
    candidates_.erase(found);
  }
  return folders;
}

}  // namespace tulo
