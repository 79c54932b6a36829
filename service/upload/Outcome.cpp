#include "service/upload/Outcome.h"

#include <algorithm>

#include "service/base/FaultPoints.h"
#include "service/base/ServiceLog.h"
#include "service/errors/Errno.h"
#include "service/kernel/RescueNews.h"
#include "service/replica/Journal.h"
#include "service/replica/JournalTree.h"
#include "service/replica/Listings.h"
#include "service/upload/Acknowledgement.h"
#include "service/upload/Conflict.h"

namespace tulo {

void Outcome::acknowledged(const Plan& plan, const platform::ItemPointer& item) {
  ContentId clean = kNoContent;
  parts_.files.withSettled(plan.node.id, Durability::eventual, [&](ReplicaWriter& writer) {
    Acknowledgement acknowledgement(writer, parts_.acknowledged, parts_.notifier,
                                    parts_.files.now());
    clean = acknowledgement.apply(plan, *item);
  });
  if (clean != kNoContent) parts_.files.forgetName(clean);
  parts_.notifier.queue({attributesChanged(plan.node.id)});
  // The host may answer with a folder that it has already, and that nobody here has looked into.
  const bool isNewFolder = plan.kind == Plan::Kind::create && plan.node.kind == NodeKind::folder;
  if (isNewFolder) relisting_.want(plan.node.id);
}

void Outcome::removed(NodeId id) {
  parts_.replica.write(Durability::eventual, [&](ReplicaWriter& writer) {
    if (const std::optional<Node> node = writer.node(id)) {
      parts_.acknowledged.note(node->identifier);
    }
    listings::forget(writer, journal::folderAtHost(writer, id));
    journal::erase(writer, id);
    writer.setIdentifier(id, "");
    writer.detach(id, inSeconds(parts_.files.now()));
  });
}

void Outcome::conflict(const Plan& plan, const platform::ItemPointer& item) {
  const ItemRecord record = recordOf(*item);
  Invalidations invalidations;
  parts_.files.withSettled(plan.node.id, Durability::eventual, [&](ReplicaWriter& writer) {
    invalidations = Conflict(parts_, writer).part(plan.node.id, record);
  });
  faultPoint("conflict.made");
  parts_.notifier.queue(std::move(invalidations));
  serviceLog().info("node %d was changed here and at the host; both versions stay",
                    {plan.node.id.number()});
  tally_.conflict();
}

void Outcome::keptAtHost(const Plan& plan) {
  NodeId folder = kNoNode;
  parts_.replica.write(Durability::eventual, [&](ReplicaWriter& writer) {
    journal::erase(writer, plan.node.id);
    writer.setIdentifier(plan.node.id, "");
    writer.detach(plan.node.id, inSeconds(parts_.files.now()));
    if (const auto parent = writer.nodeFor(plan.change.base().place.parent)) {
      folder = parent->id;
      writer.setListed(folder, 1, "");
    }
  });
  serviceLog().info("node %d was changed at the host and is not deleted there",
                    {plan.node.id.number()});
  tally_.conflict();
  relisting_.want(folder);
}

void Outcome::itemGone(const Plan& plan) {
  Invalidations invalidations;
  parts_.files.withSettled(plan.node.id, Durability::eventual, [&](ReplicaWriter& writer) {
    invalidations = loseItem(writer, plan.node.id);
  });
  parts_.notifier.queue(std::move(invalidations));
}

bool Outcome::isWanted(ReplicaWriter& writer, const Node& node, const Change& change) {
  if (change.isDeleted()) return false;
  if (change.hasContents()) return true;
  const std::vector<Node> children = writer.childNodes(node.id);
  return std::any_of(children.begin(), children.end(),
                     [&](const Node& child) { return journal::anyToSendBelow(writer, child.id); });
}

Invalidations Outcome::loseItem(ReplicaWriter& writer, NodeId id) {
  const std::optional<Node> node = writer.node(id);
  std::optional<Change> change = journal::find(writer, id);
  if (!node || !change) return {};
  parts_.acknowledged.note(node->identifier);
  listings::forget(writer, journal::folderAtHost(writer, id));
  writer.setIdentifier(id, "");
  if (!isWanted(writer, *node, *change)) {
    serviceLog().info("the host does not have %{public}@ any more, so its new name or place goes",
                      {node->name});
    Invalidations told = {entryDeleted(node->parent, id, node->name), dataChanged(node->parent)};
    for (const Invalidation& news : newsOf(rescueLocal(writer, id)))
      told.push_back(news);
    journal::erase(writer, id);
    writer.detach(id, inSeconds(parts_.files.now()));
    return told;
  }
  change->hostHasNothing();
  change->request.hadNoEffect();
  change->standing.startOver(parts_.files.now());
  journal::put(writer, *change);
  return {};
}

void Outcome::parentGone(const Plan& plan) {
  parts_.replica.write(Durability::eventual, [&](ReplicaWriter& writer) {
    const std::optional<Node> parent = writer.nodeFor(plan.parentIdentifier);
    if (auto change = journal::find(writer, plan.node.id)) {
      change->request.hadNoEffect();
      journal::put(writer, *change);
    }
    if (!parent) return;
    listings::forget(writer, journal::folderAtHost(writer, parent->id));
    Change change = journal::begin(writer, *parent, parts_.files.now());
    change.hostHasNothing();
    change.request.hadNoEffect();
    journal::put(writer, change);
    writer.setIdentifier(parent->id, "");
  });
}

bool Outcome::isTired(const Change& change, Reaction reaction) {
  const bool uncertain = reaction == Reaction::uncertain || reaction == Reaction::lookAgain;
  const MutexLock lock(mutex_);
  // Tried anew since it was changed, or since the user said so.
  if (change.standing.attempts() <= 1) uncertain_.erase(change.node());
  if (!uncertain) return false;
  const bool tired = ++uncertain_[change.node()] >= kUncertainAttempts;
  if (tired) uncertain_.erase(change.node());
  return tired;
}

Outcome::Failure Outcome::refuse(ReplicaWriter& writer, Change& change,
                                 const platform::NSError& error, const Circumstances& how) {
  const Reaction reaction = how.reaction;
  const bool tired = isTired(change, reaction);
  Failure failure{reaction == Reaction::refuse || tired, descriptionOf(error)};
  failure.words += adviceFor(reaction, failure.attention);
  if (provesNotDone(error)) change.request.hadNoEffect();
  if (how.ended) change.request.ended();
  if (failure.attention) change.standing.refuse();
  change.standing.failed(failure.words);
  journal::put(writer, change);
  const bool shown =
      failure.attention || reaction == Reaction::retryShown || reaction == Reaction::retryHandover;
  if (shown) writer.setError(change.node(), failure.words);
  return failure;
}

Outcome::Failure Outcome::failed(const Plan& plan, const platform::NSError& error,
                                 const Circumstances& how) {
  const WallTime now = parts_.files.now();
  Failure failure{false, descriptionOf(error)};
  parts_.replica.write(Durability::eventual, [&](ReplicaWriter& writer) {
    std::optional<Change> change = journal::find(writer, plan.node.id);
    if (!change) return;
    const milliseconds pause = backOff(change->standing.attempts() + 1, how.reaction, how.random);
    change->standing.putOff(how.reaction == Reaction::pause ? now : now + pause);
    failure = refuse(writer, *change, error, how);
  });
  if (failure.attention) {
    serviceLog().error("%{public}@ is refused by the host: %{public}@",
                       {plan.node.name, failure.words});
  } else {
    serviceLog().info("%{public}@ did not go up: %{public}@", {plan.node.name, failure.words});
  }
  return failure;
}

}  // namespace tulo
