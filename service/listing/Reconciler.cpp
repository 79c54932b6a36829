#include "service/listing/Reconciler.h"

#include <algorithm>
#include <ctime>
#include <deque>
#include <unordered_map>
#include <unordered_set>

#include "service/base/Names.h"
#include "service/replica/Journal.h"
#include "service/replica/JournalTree.h"
#include "service/replica/KeptNodes.h"
#include "service/replica/LocalTimes.h"
#include "service/replica/Meta.h"
#include "service/replica/NodeContents.h"

namespace tulo {

namespace {

constexpr unsigned kNameAttempts = 16;

// A child that stays, or comes from elsewhere in the tree.
struct Kept {
  Node before;
  const ItemRecord* item = nullptr;
  bool renamed = false;
};

bool sameMetadata(const Node& node, const ItemRecord& item) {
  return node.size == item.size && node.modified.whole == item.modified &&
         node.capabilities == item.capabilities && node.metadataVersion == item.metadataVersion &&
         node.contentVersion == item.contentVersion;
}

bool sameName(const Node& node, const ItemRecord& item) {
  return node.filename == item.filename && node.name == names::shown(item.filename);
}

bool changesContents(const Node& node, const ItemRecord& item) {
  // What was sent from here is what the host reports first, whatever version it gave it.
  if (node.contentVersion.empty() && node.size == item.size) return false;
  return node.kind == NodeKind::file &&
         (node.contentVersion != item.contentVersion || node.size != item.size);
}

// Contents change, and whether they are open has to be asked under the gate.
struct NeedsGate : std::exception {};

// One reconciliation, inside its transaction.
class Pass {
 public:
  Pass(ReplicaWriter& writer, OpenFiles& openFiles, bool gateHeld, NodeId folder,
       const Listing& listing, std::unordered_set<std::string> newer, std::vector<Node> children)
      : writer_(writer),
        openFiles_(openFiles),
        gateHeld_(gateHeld),
        folder_(folder),
        listing_(listing),
        newer_(std::move(newer)),
        children_(std::move(children)) {}

  // False when the folder is gone.
  bool run(const std::string& digest, const ListingStamp& stamp) {
    const std::optional<Node> folder = writer_.node(folder_);
    if (!folder) return false;
    kept_ = folder->kept;
    identifier_ = folder->identifier;
    firstTime_ = folder->listed == 0 && children_.empty();
    loadChanges();
    sortOut();
    detachMissing();
    updateKept();
    insertNew();
    finishFolder();
    writer_.setListed(folder_, stamp.generation, incomplete_ ? std::string() : digest);
    meta::set(writer_, "generation", static_cast<std::int64_t>(stamp.generation));
    meta::set(writer_, "fingerprint", std::string_view(stamp.fingerprint));
    return true;
  }

  Invalidations take() { return std::move(invalidations_); }
  bool isOutdated() const { return outdated_; }
  const std::vector<Entry>& leftBehind() const { return leftBehind_; }

 private:
  void loadChanges() {
    nothingPending_ = journal::isEmpty(writer_);
    if (nothingPending_) return;
    for (Change& change : journal::inFolder(writer_, folder_)) {
      changes_.emplace(change.node, std::move(change));
    }
    for (Change& change : journal::basedIn(writer_, identifier_)) {
      changes_.emplace(change.node, std::move(change));
    }
    // What was moved away or deleted here meanwhile must not turn up a second time.
    for (Change& change : journal::sentInto(writer_, identifier_)) {
      changes_.emplace(change.node, std::move(change));
    }
  }

  Change* changeOf(NodeId node) {
    const auto found = changes_.find(node);
    return found == changes_.end() ? nullptr : &found->second;
  }

  // What the host has now is what the change of this side is to be compared with.
  void rebase(Change& change, const ItemRecord& item) {
    if (change.baseParent == identifier_ && change.baseFilename == item.filename) return;
    change.baseParent = identifier_;
    change.baseFilename = item.filename;
    journal::put(writer_, change);
  }

  // A name or contents that were changed here stay until the host has them; the rest follows it.
  void keepChanged(const Node& node, const ItemRecord& item, Change* change) {
    const bool renamedHere = change && node.filename != change->baseFilename;
    if (change) rebase(*change, item);
    ItemRecord& merged = merged_.emplace_back(item);
    if (renamedHere) merged.filename = node.filename;
    if (!change || change->contents || node.state == ContentState::dirty) {
      merged.size = node.size;
      merged.modified = node.modified.whole;
      merged.contentVersion = node.contentVersion;
      incomplete_ = true;
    }
    keep(node, merged);
  }

  // Whether what is here of the item is newer than the listing.
  bool isNewerHere(const std::string& identifier) {
    if (newer_.empty() || !newer_.contains(identifier)) return false;
    incomplete_ = true;
    outdated_ = true;
    return true;
  }

  // Whether the item is one that this side already has elsewhere, or may be making just now.
  bool isOurs(const ItemRecord& item) {
    if (changes_.empty()) return ownedElsewhere(item);
    for (auto& [id, change] : changes_) {
      if (!change.sent || !change.baseParent.empty()) continue;
      const std::optional<Node> node = writer_.node(id);
      if (node && node->kind == item.kind && change.sentFilename == item.filename) {
        incomplete_ = true;
        return true;
      }
    }
    return ownedElsewhere(item);
  }

  bool ownedElsewhere(const ItemRecord& item) {
    if (nothingPending_) return false;
    const std::optional<Node> known = writer_.nodeFor(item.identifier);
    if (!known || known->parent == folder_) return false;
    std::optional<Change> change = journal::find(writer_, known->id);
    if (!change) return false;
    // Moved or deleted here; or moved there and changed here, which is no reason not to follow.
    const std::optional<Node> parent = writer_.node(known->parent);
    const bool movedHere = change->deleted || !parent || parent->identifier != change->baseParent;
    if (!movedHere) return false;
    rebase(*change, item);
    incomplete_ = true;
    return true;
  }

  // False: the node goes with its item.
  bool outlivesItem(const Node& node) {
    if (changeOf(node.id) || openFiles_.isOpenForWriting(node.id)) {
      incomplete_ = true;
      return true;
    }
    if (node.kind != NodeKind::folder || !journal::anyBelow(writer_, node.id)) {
      return false;
    }
    becomeLocal(node);
    return true;
  }

  // The host deleted a folder in which something new waits: the folder is made again for it.
  void becomeLocal(const Node& folder) {
    writer_.clearItem(folder.id);
    Change change = journal::begin(writer_, folder, WallTime{});
    change.baseParent.clear();
    change.baseFilename.clear();
    journal::put(writer_, change);
    for (const Node& child : writer_.childNodes(folder.id)) {
      if (!journal::anyBelow(writer_, child.id)) {
        writer_.detach(child.id, secondsNow());
        invalidations_.push_back(entryDeleted(folder.id, child.id, child.name));
      } else if (child.kind == NodeKind::folder && !child.identifier.empty()) {
        becomeLocal(child);
      }
    }
  }

  void sortOut() {
    std::unordered_map<std::string_view, const Node*> known;
    known.reserve(children_.size());
    for (const Node& child : children_)
      known.emplace(child.identifier, &child);
    std::unordered_set<std::string_view> seen;
    if (!children_.empty()) seen.reserve(listing_.items.size());
    for (const ItemRecord& item : listing_.items) {
      if (isNewerHere(item.identifier)) {
        seen.insert(item.identifier);
        continue;
      }
      const auto found = known.find(item.identifier);
      if (found == known.end() || found->second->kind != item.kind) {
        if (!isOurs(item)) fresh_.push_back(&item);
        continue;
      }
      if (!seen.insert(item.identifier).second) continue;
      const Node& node = *found->second;
      Change* change = changeOf(node.id);
      if (change || openFiles_.isOpenForWriting(node.id)) {
        keepChanged(node, item, change);
      } else {
        keep(node, item);
      }
    }
    for (const Node& child : children_) {
      if (child.identifier.empty() || seen.contains(child.identifier)) continue;
      if (!isNewerHere(child.identifier)) missing_.push_back(&child);
    }
  }

  void keep(const Node& node, const ItemRecord& item) {
    const bool renamed = !sameName(node, item);
    if (!renamed && sameMetadata(node, item)) return;
    stay_.push_back({node, &item, renamed});
  }

  void detachMissing() {
    const WallSeconds now = secondsNow();
    for (const Node* node : missing_) {
      if (outlivesItem(*node)) continue;
      writer_.detach(node->id, now);
      invalidations_.push_back(entryDeleted(folder_, node->id, node->name));
      listingChanged_ = true;
    }
  }

  void updateKept() {
    for (const Kept& kept : stay_) {
      if (kept.renamed) writer_.parkName(kept.before.id);
    }
    for (const Kept& kept : stay_)
      updateOne(kept);
  }

  std::string freeName(const ItemRecord& item) {
    std::string name = names::shown(item.filename);
    for (unsigned attempt = 0; attempt < kNameAttempts && writer_.childNamed(folder_, name);
         ++attempt) {
      name = names::marked(item.filename, item.identifier, attempt);
    }
    return name;
  }

  void updateOne(const Kept& kept) {
    const ItemRecord& item = *kept.item;
    Node node = kept.before;
    const bool contents = changesContents(node, item);
    if (kept.renamed) node.name = freeName(item);
    node.parent = folder_;
    node.kept = kept_ || node.pinned;
    node.filename = item.filename;
    node.size = item.size;
    if (item.kind == NodeKind::file && !keepsTime(node, contents))
      node.modified = {item.modified, {}};
    node.capabilities = item.capabilities;
    node.contentVersion = item.contentVersion;
    node.metadataVersion = item.metadataVersion;
    writer_.update(node);
    if (node.kind == NodeKind::folder && node.kept != kept.before.kept) {
      keptNodes::setBelow(writer_, node.id, node.kept);
    }
    const bool moved = kept.before.parent != folder_ || node.name != kept.before.name;
    if (moved) noteMoved(kept.before, node.name);
    if (contents) {
      replaceContents(kept.before, node.name);
    } else if (!moved || node.capabilities != kept.before.capabilities) {
      invalidations_.push_back(attributesChanged(node.id));
    }
  }

  // Times that were set here stay until the host has other contents.
  bool keepsTime(const Node& node, bool newContents) {
    const bool keeps = localTimes::isNoted(writer_, node.id);
    if (keeps && newContents) localTimes::forget(writer_, node.id);
    return keeps && !newContents;
  }

  void noteMoved(const Node& before, const std::string& name) {
    if (before.parent != kNoNode) {
      invalidations_.push_back(entryChanged(before.parent, before.name));
    }
    if (before.parent != folder_ && before.parent != kNoNode) {
      invalidations_.push_back(dataChanged(before.parent));
    }
    if (!firstTime_) invalidations_.push_back(entryChanged(folder_, name));
    listingChanged_ = true;
  }

  void replaceContents(const Node& before, const std::string& name) {
    if (before.state == ContentState::dirty) return;
    if (!gateHeld_) throw NeedsGate();
    nodeContents::drop(writer_, before.id);
    if (!openFiles_.isOpen(before.id)) {
      invalidations_.push_back(dataChanged(before.id));
      return;
    }
    writer_.renumber(before.id);
    leftBehind_.push_back(before);
    invalidations_.push_back(entryChanged(folder_, name));
    listingChanged_ = true;
  }

  void insertNew() {
    // Kept from one turn to the next, with the memory of their texts.
    std::vector<Node> nodes(ReplicaWriter::kManyNodes);
    for (std::size_t done = 0; done < fresh_.size(); done += nodes.size()) {
      nodes.resize(std::min(nodes.size(), fresh_.size() - done));
      for (std::size_t i = 0; i < nodes.size(); ++i)
        describe(*fresh_[done + i], nodes[i]);
      writer_.insertMany(nodes);
      for (std::size_t i = 0; i < nodes.size(); ++i)
        noteNew(nodes[i], *fresh_[done + i]);
    }
  }

  void describe(const ItemRecord& item, Node& node) const {
    node.id = kNoNode;
    node.parent = folder_;
    node.filename = item.filename;
    node.name = names::shown(item.filename);
    node.kind = item.kind;
    node.identifier = item.identifier;
    node.size = item.size;
    node.modified = {item.kind == NodeKind::folder ? secondsNow() : item.modified, {}};
    node.capabilities = item.capabilities;
    node.contentVersion = item.contentVersion;
    node.metadataVersion = item.metadataVersion;
    node.kept = kept_;
  }

  void noteNew(Node& node, const ItemRecord& item) {
    if (node.id == kNoNode && !insertElsewhere(node, item)) return;
    listingChanged_ = true;
    if (!firstTime_) invalidations_.push_back(entryChanged(folder_, node.name));
  }

  // The identifier is known in another place, or the name is taken. False: nothing to insert.
  bool insertElsewhere(Node& node, const ItemRecord& item) {
    if (const std::optional<Node> known = writer_.nodeFor(item.identifier)) {
      // The second row of one identifier in one listing: the first one stands.
      if (known->parent == folder_ && known->kind == item.kind) return false;
      if (known->kind == item.kind) {
        updateOne({*known, &item, true});
        return false;
      }
      writer_.remove(known->id);
      if (known->parent != kNoNode) {
        invalidations_.push_back(entryChanged(known->parent, known->name));
      }
    }
    node.name = freeName(item);
    return writer_.insert(node) != kNoNode;
  }

  void finishFolder() {
    if (!listingChanged_ || firstTime_) return;
    writer_.setModified(folder_, {secondsNow(), {}});
    invalidations_.push_back(dataChanged(folder_));
  }

  ReplicaWriter& writer_;
  OpenFiles& openFiles_;
  const bool gateHeld_;
  const NodeId folder_;
  const Listing& listing_;
  const std::unordered_set<std::string> newer_;
  const std::vector<Node> children_;
  std::string identifier_;
  std::unordered_map<NodeId, Change> changes_;
  std::deque<ItemRecord> merged_;
  // Something of the listing was not taken over, so the same listing is to be looked at again.
  bool incomplete_ = false;
  bool outdated_ = false;
  bool kept_ = false;
  bool nothingPending_ = false;
  bool firstTime_ = false;
  bool listingChanged_ = false;
  std::vector<const ItemRecord*> fresh_;
  std::vector<const Node*> missing_;
  std::vector<Kept> stay_;
  std::vector<Entry> leftBehind_;
  Invalidations invalidations_;
};

}  // namespace

Reconciler::Result Reconciler::reconcile(NodeId folder, const Listing& listing,
                                         const std::string& digest, const ListingStamp& stamp,
                                         const Acknowledged::Watch& watch) {
  // Most listings change no contents; holding the gate for a long one would hold up every open.
  try {
    return attempt(folder, listing, digest, stamp, watch, false);
  } catch (const NeedsGate&) {
    const ExclusiveLock gate(openFiles_.gate());
    return attempt(folder, listing, digest, stamp, watch, true);
  }
}

Reconciler::Result Reconciler::attempt(NodeId folder, const Listing& listing,
                                       const std::string& digest, const ListingStamp& stamp,
                                       const Acknowledged::Watch& watch, bool gateHeld) {
  Result result;
  std::vector<Entry> leftBehind;
  replica_.write(Durability::eventual, [&](ReplicaWriter& writer) {
    Pass pass(writer, openFiles_, gateHeld, folder, listing, watch.newer(),
              writer.childNodes(folder));
    if (!pass.run(digest, stamp)) return;
    result = {pass.take(), pass.isOutdated()};
    leftBehind = pass.leftBehind();
  });
  for (const Entry& entry : leftBehind)
    openFiles_.leaveBehind(entry);
  return result;
}

}  // namespace tulo
