#include "service/upload/Acknowledgement.h"

#include "service/replica/Ancestors.h"
#include "service/replica/ContentRows.h"
#include "service/replica/Journal.h"
#include "service/replica/Listings.h"
#include "service/replica/Meta.h"
#include "service/replica/NodeContents.h"
#include "service/upload/AsideName.h"
#include "service/upload/SentContents.h"
#include "service/upload/SentItem.h"

namespace tulo {

ContentId Acknowledgement::apply(const Plan& plan, const platform::NSFileProviderItem& item) {
  std::optional<Change> change = journal::find(writer_, plan.node.id);
  const std::optional<Node> node = writer_.node(plan.node.id);
  if (!change || !node) return kNoContent;
  const std::string identifier =
      plan.kind == Plan::Kind::create ? item.itemIdentifier() : node->identifier;
  mergeTwin(node->id, identifier);
  writer_.setIdentifier(node->id, identifier);
  acknowledged_.note(identifier);
  listings::forget(writer_, change->base().place.parent);
  listings::forget(writer_, plan.parentIdentifier);
  noteBase(plan, item, *change);
  const ContentId clean = noteContents(plan, *node, *change);
  writer_.setError(node->id, "");
  dropSentContents(writer_, *change, node->content);
  change->request.answered();
  change->standing.succeeded();
  if (isMoreToSay(plan, *node, *change)) {
    journal::put(writer_, *change);
  } else {
    journal::erase(writer_, node->id);
  }
  return clean;
}

void Acknowledgement::mergeTwin(NodeId node, const std::string& identifier) {
  const std::optional<Node> twin = writer_.nodeFor(identifier);
  if (!twin || twin->id == node) return;
  for (Node& child : writer_.childNodes(twin->id)) {
    if (writer_.childNamed(node, child.name) || isInside(writer_, node, child.id)) continue;
    child.parent = node;
    writer_.update(child);
  }
  writer_.setIdentifier(twin->id, "");
  writer_.detach(twin->id, inSeconds(now_));
  if (twin->parent == kNoNode) return;
  notifier_.queue({entryDeleted(twin->parent, twin->id, twin->name)});
}

void Acknowledgement::noteBase(const Plan& plan, const platform::NSFileProviderItem& item,
                               Change& change) {
  const bool placeholder = isPlaceholder(plan.node, item);
  Base base = change.base();
  if (plan.sendsContents() || plan.kind == Plan::Kind::create) {
    const auto version = placeholder ? platform::NSFileProviderItemVersion() : item.itemVersion();
    base.version = version.contentVersion;
    writer_.setVersions(plan.node.id, version.contentVersion, version.metadataVersion);
  }
  if (isAsideName(base.place.filename) && !isAsideName(plan.node.filename)) {
    meta::remove(writer_, asideKey(base.place.filename));
  }
  base.place = {plan.parentIdentifier, placeholder ? plan.node.filename : item.filename()};
  change.hostHas(std::move(base));
}

ContentId Acknowledgement::noteContents(const Plan& plan, const Node& node, Change& change) {
  if (!plan.sendsContents() || node.content != change.request.contents()) return kNoContent;
  change.contentsArrived();
  if (node.content == kNoContent) return kNoContent;
  contentRows::clearDurable(writer_, node.content);
  nodeContents::markDownloaded(writer_, node.id);
  return node.content;
}

bool Acknowledgement::isMoreToSay(const Plan& plan, const Node& node, const Change& change) {
  if (change.isDeleted() || change.hasContents()) return true;
  if (node.filename != plan.node.filename) return true;
  const std::optional<Node> parent = writer_.node(node.parent);
  return !parent || parent->identifier != plan.parentIdentifier;
}

}  // namespace tulo
