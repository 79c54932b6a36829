// Giving a change up.
#include <algorithm>
#include <cerrno>

#include "service/base/Names.h"
#include "service/errors/Errno.h"
#include "service/replica/KeptNodes.h"
#include "service/replica/Meta.h"
#include "service/upload/UploaderPlan.h"

namespace tulo {

namespace {

// Where the host had it before it stepped aside, and where it is here.
std::vector<Place> placesFor(ReplicaReader& reader, const Node& node, const Change& change) {
  std::vector<Place> places;
  const std::string former = meta::text(reader, asideKey(change.baseFilename));
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

// What stepped aside for another has a name at the host that nobody gave it. It gets its former one
// again, or the one that it has here if that is taken by now.
int Uploader::comeBack(NodeId id) {
  std::optional<Plan> plan;
  std::vector<Place> places;
  replica_.read([&](ReplicaReader& reader) {
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
  {
    std::lock_guard lock(mutex_);
    if (!active_.insert(id).second) return EBUSY;
  }
  int error = EEXIST;
  try {
    for (auto place = places.begin(); error == EEXIST && place != places.end(); ++place)
      error = putBack(*plan, *place);
  } catch (...) {
    finished(id);
    throw;
  }
  finished(id);
  return error;
}

// EEXIST when the place is not free.
int Uploader::putBack(Plan& plan, const Place& place) {
  const Answer inside = list(place.parent);
  if (inside.stopped) return EBUSY;
  if (inside.isGone() || isTaken(inside.listing, place.filename)) return EEXIST;
  if (inside.error) return errnoFor(*inside.error);
  plan.parentIdentifier = place.parent;
  plan.node.filename = place.filename;
  const Answer answer = send(plan);
  if (answer.stopped) return EBUSY;
  if (answer.error) return errnoFor(*answer.error);
  replica_.write(Durability::eventual, [&](ReplicaWriter& writer) {
    std::optional<Change> change = journal::find(writer, plan.node.id);
    if (!change) return;
    change->baseParent = place.parent;
    change->baseFilename = place.filename;
    journal::put(writer, *change);
    meta::remove(writer, asideKey(plan.change.baseFilename));
  });
  return 0;
}

// A folder that was only moved or renamed goes back, with all that is in it.
int Uploader::moveBack(ReplicaWriter& writer, Node node, const Change& change,
                       Invalidations& invalidations) {
  const std::optional<Node> home = writer.nodeFor(change.baseParent);
  const std::string name = names::shown(change.baseFilename);
  if (!home || (home->parent == kNoNode && home->id != kRootNode)) return ESTALE;
  if (writer.childNamed(home->id, name)) return EEXIST;
  for (NodeId above = home->id; above != kRootNode;) {
    const std::optional<Node> folder = writer.node(above);
    // Its former folder was put into it.
    if (!folder || folder->parent == kNoNode || above == node.id) return EINVAL;
    above = folder->parent;
  }
  invalidations = {entryChanged(node.parent, node.name), entryChanged(home->id, name),
                   dataChanged(node.parent), dataChanged(home->id)};
  node.parent = home->id;
  node.name = name;
  node.filename = change.baseFilename;
  node.kept = node.pinned || home->kept;
  writer.update(node);
  keptNodes::setBelow(writer, node.id, node.kept);
  writer.setError(node.id, "");
  journal::erase(writer, node.id);
  return 0;
}

int Uploader::discard(NodeId id) {
  if (isActive(id) || parts_.openFiles.isOpenForWriting(id)) return EBUSY;
  if (const int error = comeBack(id)) return error;
  Invalidations invalidations;
  NodeId folder = kNoNode;
  int error = 0;
  parts_.files.withSettled(id, Durability::eventual, [&](ReplicaWriter& writer) {
    const std::optional<Node> node = writer.node(id);
    const std::optional<Change> change = journal::find(writer, id);
    if (!node || !change) {
      error = ENOENT;
      return;
    }
    if (node->kind == NodeKind::folder && !change->deleted && !writer.childNodes(id).empty()) {
      error = change->baseFilename.empty() ? ENOTEMPTY
                                           : moveBack(writer, *node, *change, invalidations);
      return;
    }
    journal::erase(writer, id);
    writer.clearIdentifier(id);
    writer.detach(id, inSeconds(parts_.files.now()));
    invalidations = {entryDeleted(node->parent, id, node->name), dataChanged(node->parent)};
    const std::optional<Node> home = writer.nodeFor(change->baseParent);
    folder = home ? home->id : node->parent;
    if (folder != kNoNode) writer.setListed(folder, 1, "");
  });
  parts_.notifier.queue(std::move(invalidations));
  {
    std::lock_guard lock(mutex_);
    if (folder != kNoNode) relist_.push_back(folder);
  }
  relistWanted();
  return error;
}

}  // namespace tulo
