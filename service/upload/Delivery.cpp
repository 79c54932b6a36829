#include "service/upload/Delivery.h"

#include <stdexcept>

#include "service/base/FaultPoints.h"
#include "service/base/ServiceLog.h"
#include "service/errors/Errno.h"
#include "service/replica/Journal.h"
#include "service/upload/SentContents.h"
#include "service/upload/SentItem.h"

namespace tulo {

namespace {

// A host that answers takes less; later it is the extension that gave up waiting.
constexpr milliseconds kAnswered = std::chrono::seconds(100);

}  // namespace

void Delivery::carryOut(NodeId node, bool aside) try {
  if (std::optional<Plan> plan = makePlan(node, aside)) perform(*plan);
} catch (const std::exception& error) {
  serviceLog().error("cannot send the change of node %d: %{public}@",
                     {node.number(), error.what()});
  to_.verdicts.failed(node, errnoFor(error));
  putOff(node);
}

// Looked at again at once, it would be found the same, over and over.
void Delivery::rest(NodeId node) {
  const WallTime now = parts_.files.now();
  parts_.replica.write(Durability::eventual, [&](ReplicaWriter& writer) {
    const std::optional<Change> change = journal::find(writer, node);
    if (!change || !change->standing.isReady() || change->standing.due() > now) return;
    journal::postpone(writer, node, now + parts_.files.quiet());
  });
}

void Delivery::putOff(NodeId node) try {
  const auto work = [&](ReplicaWriter& writer) {
    std::optional<Change> change = journal::find(writer, node);
    if (!change) return;
    const std::int64_t attempts = change->standing.attempts() + 1;
    change->standing.putOff(parts_.files.now() + backOff(attempts, Reaction::retry, 0));
    journal::put(writer, *change);
  };
  // Nothing else makes room on a full disk as long as nobody deletes anything.
  parts_.replica.write(Durability::eventual, work, Room::fromReserve);
} catch (const std::exception& failure) {
  serviceLog().error("cannot put off the change of node %d: %{public}@",
                     {node.number(), failure.what()});
}

std::optional<Plan> Delivery::makePlan(NodeId id, bool aside) {
  Planned planned;
  parts_.files.withSettled(id, Durability::eventual, [&](ReplicaWriter& writer) {
    planned = to_.planner.plan(writer, id, aside, parts_.files.now());
  });
  faultPoint("push.planned");
  if (!planned.plan && planned.wanted == kNoNode) rest(id);
  if (planned.wanted != kNoNode && parts_.fetch && parts_.fetch(planned.wanted) != 0) {
    throw std::runtime_error("the contents of a backup are not here");
  }
  return std::move(planned.plan);
}

void Delivery::perform(Plan& plan) {
  if (plan.change.request.isOpen()) return to_.doubt.settle(plan);
  if (plan.kind == Plan::Kind::remove) return performRemoval(plan);
  if (plan.kind == Plan::Kind::modify && !checkBase(plan)) return;
  if (markSent(plan)) send(plan);
}

void Delivery::send(const Plan& plan) {
  const WallTime begun = steadyClock();
  Answer answer = to_.provider.send(plan);
  faultPoint("push.answered");
  if (answer.stopped) return;
  if (answer.error || !answer.item) {
    const bool gaveUp = steadyClock() - begun > kAnswered;
    return to_.failure.react(plan,
                             answer.error.value_or(platform::fileProviderError(
                                 platform::NSFileProviderErrorCode::cannotSynchronize)),
                             gaveUp ? Failure::End::gaveUpWaiting : Failure::End::answered);
  }
  if (plan.sendsContents()) answer.item = to_.provider.awaitRow(plan.node, answer.item);
  accept(plan, answer.item);
  faultPoint("push.acknowledged");
  to_.reached();
}

void Delivery::accept(const Plan& plan, const platform::ItemPointer& item) {
  const bool ours = !plan.sendsContents() || isPlaceholder(plan.node, *item) ||
                    isAsSent(plan, *item, sizeOf(parts_.store, plan.change.request.contents()));
  ours ? to_.outcome.acknowledged(plan, item) : to_.doubt.compare(plan, item);
}

void Delivery::performRemoval(const Plan& plan) {
  const Answer now = to_.provider.lookUp(plan.node.identifier);
  if (now.stopped) return;
  if (now.isGone()) {
    if (!to_.reappearance.ofItem(plan)) to_.outcome.removed(plan.node.id);
    return;
  }
  if (now.error) return to_.failure.react(plan, *now.error);
  if (!mayRemove(plan, now.item)) return;
  faultPoint("delete.send");
  const Answer answer = to_.provider.send(plan);
  faultPoint("delete.answered");
  if (answer.stopped) return;
  if (answer.error) return to_.failure.react(plan, *answer.error);
  to_.outcome.removed(plan.node.id);
  to_.reached();
}

std::optional<bool> Delivery::hasMovedOn(const Plan& plan,
                                         const platform::NSFileProviderItem& item) {
  const Base& base = plan.change.base();
  const std::string version = item.itemVersion().contentVersion;
  if (!base.isOfAnotherItem()) return version != base.version;
  if (plan.node.content == kNoContent) return version != plan.node.contentVersion;
  if (plan.node.size != recordOf(item).size) return true;
  const auto same =
      hostHasContents(to_.provider, parts_.store, plan.node.identifier, plan.node.content);
  return same ? std::optional<bool>(!*same) : std::nullopt;
}

bool Delivery::mayRemove(const Plan& plan, const platform::ItemPointer& item) {
  bool movedOn = false;
  if (plan.node.kind == NodeKind::folder) {
    const Answer inside = to_.provider.list(plan.node.identifier);
    if (inside.stopped) return false;
    if (inside.error) {
      to_.failure.react(plan, *inside.error);
      return false;
    }
    movedOn = !inside.listing.items.empty();
  } else {
    const std::optional<bool> moved = hasMovedOn(plan, *item);
    if (!moved) return false;
    movedOn = *moved;
  }
  if (movedOn) to_.outcome.keptAtHost(plan);
  return !movedOn;
}

bool Delivery::checkBase(Plan& plan) {
  const Answer now = to_.provider.lookUp(plan.node.identifier);
  if (now.stopped) return false;
  if (now.isGone()) {
    if (!to_.reappearance.ofItem(plan)) to_.outcome.itemGone(plan);
    return false;
  }
  if (now.error) {
    to_.failure.react(plan, *now.error);
    return false;
  }
  // A base that is not known is no version of the host's: what it has now was not seen here.
  const bool same = now.item->itemVersion().contentVersion == plan.change.base().version;
  if (!plan.sendsContents() || same || isPlaceholder(plan.node, *now.item)) return true;
  if (sizeOf(parts_.store, plan.node.content) == recordOf(*now.item).size) {
    checkSame(plan, now.item);
  } else {
    to_.outcome.conflict(plan, now.item);
  }
  return false;
}

void Delivery::checkSame(Plan& plan, const platform::ItemPointer& item) {
  // From now on the contents here stay as they are.
  if (!markSent(plan)) return;
  const auto same = plan.node.size == 0
                        ? true
                        : hostHasContents(to_.provider, parts_.store, plan.node.identifier,
                                          plan.change.request.contents());
  if (!same) return;
  if (!*same) return to_.outcome.conflict(plan, item);
  plan.parentIdentifier = item->parentItemIdentifier();
  plan.node.filename = item->filename();
  to_.outcome.acknowledged(plan, item);
}

bool Delivery::isOutOfDate(const Plan& plan, const Change& change, const Node& node) {
  if (change.sequence() != plan.change.sequence()) return true;
  // A listing found the item meanwhile.
  if (node.identifier != plan.node.identifier) return true;
  if (!plan.sendsContents()) return false;
  if (parts_.files.isBeingWritten(node.id) && !to_.verdicts.isAwaited(node.id)) return true;
  return change.standing.due() > plan.change.standing.due() || node.content != plan.node.content ||
         node.size != plan.node.size;
}

bool Delivery::markSent(Plan& plan) {
  faultPoint("push.checked");
  bool valid = false;
  parts_.files.withSettled(plan.node.id, Durability::eventual, [&](ReplicaWriter& writer) {
    std::optional<Change> change = journal::find(writer, plan.node.id);
    const std::optional<Node> node = writer.node(plan.node.id);
    if (!change || !node || isOutOfDate(plan, *change, *node)) return;
    valid = true;
    dropSentContents(writer, *change, node->content);
    change->request.made(plan.sendsContents() ? node->content : kNoContent,
                         {plan.parentIdentifier, plan.node.filename});
    journal::put(writer, *change);
    plan.change = *change;
  });
  if (!valid) return false;
  // Without the mark it would be made a second time after a power cut.
  if (plan.kind == Plan::Kind::create) parts_.replica.synchronize();
  faultPoint("push.marked");
  return true;
}

}  // namespace tulo
