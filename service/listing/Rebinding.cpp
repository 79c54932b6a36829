#include "service/listing/Rebinding.h"

#include <algorithm>
#include <utility>

#include "service/base/ServiceLog.h"
#include "service/replica/Journal.h"

namespace tulo {

namespace {

// No provider's: what is compared with it has moved on.
constexpr const char* kOtherVersion = "of another identifier";

// Whether it is what the row says, as far as that shows: an account that was set up again counts
// its versions anew.
bool looksTheSame(const Node& node, const ItemRecord& item) {
  return item.kind == NodeKind::folder ||
         (node.size == item.size && node.modified.whole == item.modified);
}

// Whether what is here may stand for its contents.
bool hasSameContents(const Node& node, const ItemRecord& item) {
  return looksTheSame(node, item) && node.contentVersion == item.contentVersion;
}

}  // namespace

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
  if (looksTheSame(candidate.node, item)) return true;
  serviceLog().info(
      "%{public}@ is another file at the host now; what was done to the former one "
      "is not done to it",
      {item.filename});
  return false;
}

void Rebinding::take(Candidate& candidate, const ItemRecord& item) {
  const Node& node = candidate.node;
  const bool otherContents =
      !candidate.change && node.kind == NodeKind::file && !hasSameContents(node, item);
  if (node.kind == NodeKind::folder) {
    if (!node.identifier.empty()) {
      journal::folderBecame(writer_, node.identifier, item.identifier);
    }
    writer_.setListed(node.id, node.listed, "");
  }
  writer_.setIdentifier(node.id, item.identifier);
  if (candidate.change) {
    const bool compared = candidate.change->hasContents();
    candidate.change->hostHas(
        {{folder_.identifier, item.filename}, compared ? kOtherVersion : item.contentVersion});
    journal::put(writer_, *candidate.change);
  } else if (otherContents) {
    writer_.setContentVersion(node.id, kOtherVersion);
  }
  if (!candidate.child) return;
  candidate.child->identifier = item.identifier;
  if (otherContents) candidate.child->contentVersion = kOtherVersion;
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
