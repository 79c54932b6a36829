#include "service/upload/Doubt.h"

#include "service/base/FaultPoints.h"
#include "service/replica/Journal.h"
#include "service/upload/SentContents.h"

namespace tulo {

namespace {

constexpr milliseconds kPatience{2000};

}  // namespace

void Doubt::settle(const Plan& plan) {
  if (plan.kind == Plan::Kind::create) return settleCreate(plan);
  const Answer now = provider_.lookUp(plan.node.identifier);
  if (now.stopped) return;
  // The next attempt meets the same.
  if (now.isGone()) return end(plan, nullptr);
  if (now.error) return failure_.react(plan, *now.error);
  if (plan.sendsContents()) return settleContents(plan, now.item);
  end(plan, now.item);
}

void Doubt::settleCreate(const Plan& plan) {
  const auto ours = findCreated(plan);
  if (!ours) return;
  if (*ours) return outcome_.acknowledged(plan, *ours);
  if (!hadTime(plan)) return;
  plan.change.isDeleted() ? outcome_.removed(plan.node.id) : end(plan, nullptr);
}

void Doubt::settleContents(const Plan& plan, const platform::ItemPointer& now) {
  if (now->itemVersion().contentVersion == plan.change.base().version) {
    if (hadTime(plan)) end(plan, now);
    return;
  }
  const auto same = hostHasContents(provider_, parts_.store, plan.node.identifier,
                                    plan.change.request.contents());
  if (!same) return;
  *same ? outcome_.acknowledged(plan, now) : end(plan, now);
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

bool Doubt::hadTime(const Plan& plan) {
  if (plan.change.standing.attempts() > 0) return true;
  parts_.replica.write(Durability::eventual, [&](ReplicaWriter& writer) {
    std::optional<Change> change = journal::find(writer, plan.node.id);
    if (!change) return;
    change->standing.putOff(parts_.files.now() + kPatience);
    journal::put(writer, *change);
  });
  return false;
}

void Doubt::end(const Plan& plan, const platform::ItemPointer& item) {
  parts_.replica.write(Durability::eventual, [&](ReplicaWriter& writer) {
    std::optional<Change> change = journal::find(writer, plan.node.id);
    const std::optional<Node> node = writer.node(plan.node.id);
    if (!change || !node) return;
    dropSentContents(writer, *change, node->content);
    change->request.answered();
    if (item) change->hostHasIn({item->parentItemIdentifier(), item->filename()});
    journal::put(writer, *change);
  });
  faultPoint("doubt.ended");
}

}  // namespace tulo
