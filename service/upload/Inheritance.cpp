#include "service/upload/Inheritance.h"

#include "service/replica/ContentRows.h"
#include "service/replica/Journal.h"
#include "service/replica/NodeContents.h"
#include "service/upload/UploadOrder.h"

namespace tulo {

bool Inheritance::settle(Node& node, Change& change, const Place& place, WallTime now) {
  if (!mayInherit(node) || change.base().place == place) return true;
  for (Change& other : journal::basedOn(writer_, place.parent, place.filename)) {
    const std::optional<Node> former = writer_.node(other.node());
    if (!former || former->id == node.id || former->kind != NodeKind::file) continue;
    const Claim found = claim(node, other, *former);
    if (found == Claim::none) continue;
    if (found == Claim::wait) return false;
    inherit(node, change, *former, other, now);
    break;
  }
  return true;
}

Inheritance::Claim Inheritance::claim(const Node& node, const Change& other, const Node& former) {
  if (other.request.isOpen() || isActive_(former.id)) return Claim::wait;
  if (other.isDeleted()) return Claim::inherit;
  if (!localNames_.matches(former.name) || !node.identifier.empty()) return Claim::none;
  const bool isElsewhere = former.state == ContentState::dataless && former.size > 0;
  return isElsewhere ? Claim::wait : Claim::inherit;
}

void Inheritance::inherit(Node& node, Change& change, const Node& former, Change& other,
                          WallTime now) {
  writer_.setIdentifier(former.id, "");
  if (node.identifier.empty()) {
    letGo(former, other, now);
    change.hostHas(other.base());
  } else {
    exchange(node, change, former, other);
  }
  node.identifier = former.identifier;
  writer_.setIdentifier(node.id, node.identifier);
  writer_.setContentVersion(node.id, change.base().version);
  if (node.content == kNoContent) giveEmptyContents(node);
  nodeContents::markDirty(writer_, node.id);
  node.contentVersion = change.base().version;
  change.contentsChanged();
  journal::put(writer_, change);
}

void Inheritance::letGo(const Node& former, const Change& other, WallTime now) {
  journal::erase(writer_, former.id);
  if (other.isDeleted()) return writer_.detach(former.id, inSeconds(now));
  // The backup lives on here alone.
  nodeContents::markDirtyIfAny(writer_, former.id);
  if (former.content != kNoContent) store_.setName(former.content, former.name);
}

void Inheritance::exchange(const Node& node, Change& change, const Node& former, Change& other) {
  writer_.setIdentifier(node.id, "");
  writer_.setIdentifier(former.id, node.identifier);
  const Change before = change;
  change.takeOver(other);
  other.takeOver(before);
  journal::erase(writer_, node.id);
  journal::put(writer_, other);
}

void Inheritance::giveEmptyContents(Node& node) {
  node.content = contentRows::reserve(writer_, node.id);
  store_.create(node.content, node.name);
  contentRows::use(writer_, node.content);
  nodeContents::set(writer_, node.id, node.content);
}

}  // namespace tulo
