#include "service/upload/Discard.h"

#include <algorithm>
#include <cerrno>

#include "service/base/Names.h"
#include "service/errors/Errno.h"
#include "service/replica/Ancestors.h"
#include "service/replica/Journal.h"
#include "service/replica/KeptNodes.h"
#include "service/replica/Meta.h"
#include "service/upload/AsideName.h"

namespace tulo {

namespace {

// Where the host had it before it stepped aside, and where it is here.
std::vector<Place> placesFor(ReplicaReader& reader, const Node& node, const Change& change) {
  std::vector<Place> places;
  const std::string former = meta::text(reader, asideKey(change.base().place.filename));
  if (former.empty()) return places;
  const std::size_t end = former.find('\n');
  places.push_back({former.substr(0, end), former.substr(end + 1)});
  const std::optional<Node> parent = reader.node(node.parent);
  if (parent && !parent->identifier.empty()) {
    places.push_back({parent->identifier, node.filename});
  }
  return places;
}

bool isTaken(const Listing& listing, const std::string& filename) {
  return std::any_of(listing.items.begin(), listing.items.end(),
                     [&](const ItemRecord& item) { return item.filename == filename; });
}

}  // namespace

int Discard::comeBack(NodeId id) {
  std::optional<Plan> plan;
  std::vector<Place> places;
  parts_.replica.read([&](ReplicaReader& reader) {
    const std::optional<Change> change = journal::find(reader, id);
    const std::optional<Node> node = reader.node(id);
    if (!change || !node || node->identifier.empty()) return;
    places = placesFor(reader, *node, *change);
    plan = Plan{
        Plan::Kind::modify,
        *node,
        *change,
        {},
        platform::NSFileProviderItemFilename | platform::NSFileProviderItemParentItemIdentifier};
  });
  if (places.empty()) return 0;
  return scheduler_.take(id) ? comeBackTo(*plan, places) : EBUSY;
}

int Discard::comeBackTo(Plan& plan, const std::vector<Place>& places) {
  const NodeId id = plan.node.id;
  int error = EEXIST;
  try {
    for (auto place = places.begin(); error == EEXIST && place != places.end(); ++place)
      error = putBack(plan, *place);
  } catch (...) {
    scheduler_.finished(id);
    throw;
  }
  scheduler_.finished(id);
  return error;
}

int Discard::putBack(Plan& plan, const Place& place) {
  const Answer inside = provider_.list(place.parent);
  if (inside.stopped) return EBUSY;
  if (inside.isGone() || isTaken(inside.listing, place.filename)) return EEXIST;
  if (inside.error) return errnoFor(*inside.error);
  plan.parentIdentifier = place.parent;
  plan.node.filename = place.filename;
  const Answer answer = provider_.send(plan);
  if (answer.stopped) return EBUSY;
  if (answer.error) return errnoFor(*answer.error);
  parts_.replica.write(Durability::eventual, [&](ReplicaWriter& writer) {
    std::optional<Change> change = journal::find(writer, plan.node.id);
    if (!change) return;
    change->hostHasIn(place);
    journal::put(writer, *change);
    meta::remove(writer, asideKey(plan.change.base().place.filename));
  });
  return 0;
}

int Discard::mayMoveBack(ReplicaWriter& writer, const Node& node, const Node& home,
                         const std::string& name) {
  if (writer.childNamed(home.id, name)) return EEXIST;
  const std::optional<Node> end = firstUpwards(writer, home.id, [&](const Node& above) {
    return above.id == node.id || above.id == kRootNode;
  });
  // Its former folder was put into it, or is in no tree.
  return end && end->id == kRootNode && node.id != kRootNode ? 0 : EINVAL;
}

Discard::Undone Discard::moveBack(ReplicaWriter& writer, Node node, const Change& change) {
  const Place& base = change.base().place;
  const std::optional<Node> home = writer.nodeFor(base.parent);
  const std::string name = names::shown(base.filename);
  if (!home || (home->parent == kNoNode && home->id != kRootNode)) return {ESTALE, {}};
  if (const int error = mayMoveBack(writer, node, *home, name)) return {error, {}};
  Undone undone;
  undone.invalidations = {entryChanged(node.parent, node.name), entryChanged(home->id, name),
                          dataChanged(node.parent), dataChanged(home->id)};
  node.parent = home->id;
  node.name = name;
  node.filename = base.filename;
  node.kept = node.pinned || home->kept;
  writer.update(node);
  keptNodes::setBelow(writer, node.id, node.kept);
  writer.setError(node.id, "");
  journal::erase(writer, node.id);
  return undone;
}

Discard::Undone Discard::undo(ReplicaWriter& writer, NodeId id) {
  const std::optional<Node> node = writer.node(id);
  const std::optional<Change> change = journal::find(writer, id);
  if (!node || !change) return {ENOENT, {}};
  const bool isFolder = node->kind == NodeKind::folder && !change->isDeleted();
  if (isFolder && !writer.childNodes(id).empty()) {
    if (change->base().place.filename.empty()) return {ENOTEMPTY, {}};
    return moveBack(writer, *node, *change);
  }
  journal::erase(writer, id);
  writer.setIdentifier(id, "");
  writer.detach(id, inSeconds(parts_.files.now()));
  const std::optional<Node> home = writer.nodeFor(change->base().place.parent);
  Undone undone;
  undone.invalidations = {entryDeleted(node->parent, id, node->name), dataChanged(node->parent)};
  undone.folder = home ? home->id : node->parent;
  if (undone.folder != kNoNode) writer.setListed(undone.folder, 1, "");
  return undone;
}

int Discard::discard(NodeId id) {
  if (scheduler_.active().contains(id) || parts_.openFiles.isOpenForWriting(id)) return EBUSY;
  if (const int error = comeBack(id)) return error;
  Undone undone;
  parts_.files.withSettled(id, Durability::eventual,
                           [&](ReplicaWriter& writer) { undone = undo(writer, id); });
  parts_.notifier.queue(std::move(undone.invalidations));
  relisting_.want(undone.folder);
  relisting_.listWanted();
  return undone.error;
}

}  // namespace tulo
