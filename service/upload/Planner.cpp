#include "service/upload/Planner.h"

#include <algorithm>

#include "service/edits/StaysLocal.h"
#include "service/replica/Journal.h"
#include "service/replica/Meta.h"
#include "service/upload/AsideName.h"
#include "service/upload/UploadOrder.h"

namespace tulo {

namespace {

using platform::NSFileProviderItemContents;
using platform::NSFileProviderItemFilename;
using platform::NSFileProviderItemParentItemIdentifier;

platform::NSFileProviderItemFields changedFields(bool creates, const Node& node,
                                                 const Change& change, const std::string& parent) {
  const Place& base = change.base().place;
  platform::NSFileProviderItemFields fields = 0;
  if (change.hasContents() && node.kind == NodeKind::file) fields |= NSFileProviderItemContents;
  if (creates || node.filename != base.filename) fields |= NSFileProviderItemFilename;
  if (creates || parent != base.parent) fields |= NSFileProviderItemParentItemIdentifier;
  return fields;
}

// The plan that a request was made by, as far as what became of it is concerned.
Plan planOfSent(const Node& node, const Change& change) {
  const bool creates = node.identifier.empty();
  Plan plan{creates ? Plan::Kind::create : Plan::Kind::modify, node, change,
            change.request.place().parent,
            change.request.contents() != kNoContent ? NSFileProviderItemContents : 0};
  plan.node.filename = change.request.place().filename;
  return plan;
}

std::optional<Plan> planOfRemoval(ReplicaWriter& writer, const Node& node, const Change& change,
                                  WallTime now) {
  if (!node.identifier.empty()) {
    return Plan{Plan::Kind::remove, node, change, change.base().place.parent, 0};
  }
  journal::erase(writer, node.id);
  writer.detach(node.id, inSeconds(now));
  return std::nullopt;
}

// Out of the way, but no farther than it has to go: out of a folder that is to be deleted.
Plan planOfAside(ReplicaWriter& writer, const Node& node, const Change& change) {
  const Place& base = change.base().place;
  Plan plan{Plan::Kind::modify, node, change, base.parent, NSFileProviderItemFilename};
  plan.node.filename = asideName(node);
  if (!isAsideName(base.filename)) {
    meta::set(writer, asideKey(plan.node.filename), base.parent + '\n' + base.filename);
  }
  const std::optional<Node> home = writer.nodeFor(base.parent);
  const std::optional<Change> above = home ? journal::find(writer, home->id) : std::nullopt;
  if (above && above->isDeleted()) {
    plan.parentIdentifier = platform::NSFileProviderRootContainerItemIdentifier();
    plan.fields |= NSFileProviderItemParentItemIdentifier;
  }
  return plan;
}

// The host hears nothing of it; a row is needed as long as it has the item.
void holdHere(ReplicaWriter& writer, const Node& node, Change& change) {
  change.standing.hold();
  if (node.identifier.empty()) return journal::erase(writer, node.id);
  journal::put(writer, change);
}

NodeId backupAmong(const std::vector<Change>& there, const Node& node) {
  NodeId backup = kNoNode;
  for (const Change& other : there) {
    const bool waits = !other.isDeleted() && !other.request.isOpen();
    if (waits && other.node() != node.id) backup = other.node();
  }
  return backup;
}

}  // namespace

bool Planner::isOccupied(ReplicaWriter& writer, const std::vector<Change>& there,
                         const Node& node) const {
  return std::any_of(there.begin(), there.end(), [&](const Change& other) {
    return occupies(other, writer.node(other.node()), node, localNames_);
  });
}

Planned Planner::planOfChange(ReplicaWriter& writer, Node& node, Change& change,
                              WallTime now) const {
  if (staysLocal(writer, localNames_, node.parent, node.name)) {
    holdHere(writer, node, change);
    return {};
  }
  const std::optional<Node> parent = writer.node(node.parent);
  if (!parent) return {};
  if (parent->identifier.empty()) {
    // Until now nothing was in it that the host is to hear of.
    if (!journal::find(writer, parent->id)) {
      journal::put(writer, journal::begin(writer, *parent, now));
    }
    return {};
  }
  const Place place{parent->identifier, node.filename};
  const auto there = journal::basedOn(writer, place.parent, place.filename);
  if (isOccupied(writer, there, node)) return {};
  Inheritance inheritance(writer, localNames_, store_, isActive_);
  if (!inheritance.settle(node, change, place, now)) return {{}, backupAmong(there, node)};
  const bool creates = node.identifier.empty();
  Plan plan{creates ? Plan::Kind::create : Plan::Kind::modify, node, change, place.parent,
            changedFields(creates, node, change, place.parent)};
  if (plan.fields != 0) return {std::move(plan)};
  journal::erase(writer, node.id);
  return {};
}

Planned Planner::plan(ReplicaWriter& writer, NodeId id, bool aside, WallTime now) const {
  std::optional<Change> change = journal::find(writer, id);
  std::optional<Node> node = writer.node(id);
  if (!change) return {};
  if (!node) {
    journal::erase(writer, id);
    return {};
  }
  // Written to just now.
  if (change->standing.due() > now && !aside) return {};
  if (change->request.isOpen()) return {planOfSent(*node, *change)};
  if (change->isDeleted()) return {planOfRemoval(writer, *node, *change, now)};
  if (aside && !node->identifier.empty()) return {planOfAside(writer, *node, *change)};
  return planOfChange(writer, *node, *change, now);
}

}  // namespace tulo
