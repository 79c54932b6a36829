#include "service/upload/Doubt.h"

#include "service/base/FaultPoints.h"
#include "service/replica/Journal.h"
#include "service/upload/SentContents.h"

namespace tulo {

void Doubt::settle(const Plan& plan) {
  const Prospect prospect = work_.prospectOf(plan.change, parts_.files.now());
  if (plan.kind == Plan::Kind::create) return settleCreate(plan, prospect);
  const Answer now = provider_.lookUp(plan.node.identifier);
  if (now.stopped) return;
  // The next attempt meets the same.
  if (now.isGone()) return end(plan, nullptr);
  if (now.error) return failure_.react(plan, *now.error);
  if (plan.sendsContents()) return settleContents(plan, now.item, prospect);
  endOrWait(plan, now.item, prospect);
}

void Doubt::settleCreate(const Plan& plan, Prospect prospect) {
  const auto ours = findCreated(plan);
  if (!ours) return;
  if (*ours) return acknowledge(plan, *ours);
  const bool isOver = prospect == Prospect::nothing && plan.change.isDeleted();
  isOver ? outcome_.removed(plan.node.id) : endOrWait(plan, nullptr, prospect);
}

void Doubt::settleContents(const Plan& plan, const platform::ItemPointer& now, Prospect prospect) {
  const bool moved = now->itemVersion().contentVersion != plan.change.base().version;
  if (moved) {
    const auto same = hostHasContents(provider_, parts_.store, plan.node.identifier,
                                      plan.change.request.contents());
    if (!same) return;
    if (*same) return acknowledge(plan, now);
  }
  endOrWait(plan, now, prospect);
}

void Doubt::compare(const Plan& plan, const platform::ItemPointer& item) {
  const auto same = hostHasContents(provider_, parts_.store, item->itemIdentifier(),
                                    plan.change.request.contents());
  if (!same) return;
  *same ? acknowledge(plan, item) : outcome_.conflict(plan, item);
}

void Doubt::acknowledge(const Plan& plan, const platform::ItemPointer& item) {
  work_.forget(plan.node.id);
  outcome_.acknowledged(plan, item);
}

std::vector<std::string> Doubt::candidates(const Plan& plan, const Listing& listing) {
  const bool file = plan.node.kind == NodeKind::file;
  const std::int64_t size =
      file ? sizeOf(parts_.store, plan.change.request.contents()) : std::int64_t{0};
  std::vector<std::string> result;
  for (const ItemRecord& item : listing.items) {
    const bool alike =
        item.kind == plan.node.kind && item.filename == plan.change.request.place().filename;
    if (!alike || (file && item.size != size)) continue;
    const bool known = parts_.replica.read(
        [&](ReplicaReader& reader) { return reader.nodeFor(item.identifier).has_value(); });
    if (!known) result.push_back(item.identifier);
  }
  return result;
}

std::optional<platform::ItemPointer> Doubt::findCreated(const Plan& plan) {
  const Request& request = plan.change.request;
  const Answer inside = provider_.list(request.place().parent);
  if (inside.stopped) return std::nullopt;
  if (inside.error) {
    failure_.react(plan, *inside.error);
    return std::nullopt;
  }
  const bool hasBytes =
      plan.node.kind == NodeKind::file && sizeOf(parts_.store, request.contents()) > 0;
  for (const std::string& identifier : candidates(plan, inside.listing)) {
    if (hasBytes) {
      const auto same = hostHasContents(provider_, parts_.store, identifier, request.contents());
      if (!same) return std::nullopt;
      if (!*same) continue;
    }
    if (const Answer found = provider_.lookUp(identifier); found.item) return found.item;
  }
  return platform::ItemPointer();
}

void Doubt::endOrWait(const Plan& plan, const platform::ItemPointer& item, Prospect prospect) {
  prospect == Prospect::nothing ? end(plan, item) : waitForHost(plan, prospect);
}

void Doubt::waitForHost(const Plan& plan, Prospect prospect) {
  // Who waits for the host's word is told, as by any other request that finds nobody.
  if (prospect == Prospect::hostAbsent) {
    return failure_.react(
        plan, platform::fileProviderError(platform::NSFileProviderErrorCode::serverUnreachable),
        Failure::End::gaveUpWaiting);
  }
  const milliseconds pause = work_.pause(plan.node.id);
  parts_.replica.write(Durability::eventual, [&](ReplicaWriter& writer) {
    std::optional<Change> change = journal::find(writer, plan.node.id);
    if (!change) return;
    change->standing.putOff(parts_.files.now() + pause);
    change->standing.failed("the host may still be at work on it");
    journal::put(writer, *change);
  });
}

void Doubt::end(const Plan& plan, const platform::ItemPointer& item) {
  work_.forget(plan.node.id);
  parts_.replica.write(Durability::eventual, [&](ReplicaWriter& writer) {
    std::optional<Change> change = journal::find(writer, plan.node.id);
    const std::optional<Node> node = writer.node(plan.node.id);
    if (!change || !node) return;
    dropSentContents(writer, *change, node->content);
    change->request.answered();
    change->standing.failed({});
    if (item) change->hostHasIn({item->parentItemIdentifier(), item->filename()});
    journal::put(writer, *change);
  });
  faultPoint("doubt.ended");
}

}  // namespace tulo
