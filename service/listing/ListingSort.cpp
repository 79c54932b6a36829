#include "service/listing/ListingSort.h"

#include <optional>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "service/base/Names.h"

namespace tulo {

namespace {

bool sameMetadata(const Node& node, const ItemRecord& item) {
  return node.size == item.size && node.modified.whole == item.modified &&
         node.capabilities == item.capabilities && node.metadataVersion == item.metadataVersion &&
         node.contentVersion == item.contentVersion;
}

bool sameName(const Node& node, const ItemRecord& item) {
  return node.filename == item.filename && node.name == names::shown(item.filename);
}

class Sorter {
 public:
  explicit Sorter(const SortParts& parts) : parts_(parts) {}

  SortedListing sort() {
    indexChildren();
    for (const ItemRecord& item : parts_.listing.items) {
      if (isNewerHere(item.identifier)) {
        seen_.insert(item.identifier);
      } else {
        place(item);
      }
    }
    for (const Node& child : parts_.children) {
      if (child.identifier.empty() || seen_.contains(child.identifier)) continue;
      if (!isNewerHere(child.identifier)) result_.missing.push_back(&child);
    }
    return std::move(result_);
  }

 private:
  void indexChildren() {
    known_.reserve(parts_.children.size());
    for (const Node& child : parts_.children)
      known_.emplace(child.identifier, &child);
    if (!known_.empty()) seen_.reserve(parts_.listing.items.size());
  }

  // Whether what is here of the item is newer than the listing.
  bool isNewerHere(const std::string& identifier) {
    if (parts_.newer.empty() || !parts_.newer.contains(identifier)) return false;
    result_.incomplete = true;
    result_.outdated = true;
    return true;
  }

  void place(const ItemRecord& item) {
    const auto found = known_.find(item.identifier);
    if (found == known_.end() || found->second->kind != item.kind) {
      placeUnknown(item);
    } else if (seen_.insert(item.identifier).second) {
      placeKnown(*found->second, item);
    }
  }

  void placeUnknown(const ItemRecord& item) {
    if (parts_.changes.isOurs(item)) {
      result_.incomplete = true;
      // Only one of them can be what is being made here. Which one, the host has yet to say.
      if (parts_.changes.isBeingMade(item) && !beingMade_.insert(item.filename).second) {
        result_.outdated = true;
      }
      followElsewhere(item);
    } else {
      result_.fresh.push_back(&item);
    }
  }

  // What was moved away here keeps its new place and name; what it holds is still the host's.
  void followElsewhere(const ItemRecord& item) {
    const std::optional<Node> node = parts_.changes.movedAway(item);
    if (!node || node->kind != NodeKind::file || isChangedHere(*node)) return;
    ItemRecord& merged = result_.merged.emplace_back(item);
    merged.filename = node->filename;
    if (!sameMetadata(*node, merged)) result_.kept.push_back({*node, &merged, false, true});
  }

  // Whether the contents here are others than the host's, or may be at any moment.
  bool isChangedHere(const Node& node) const {
    return node.state == ContentState::dirty || parts_.openFiles.isOpenForWriting(node.id);
  }

  void placeKnown(const Node& node, const ItemRecord& item) {
    Change* change = parts_.changes.of(node.id);
    if (change || parts_.openFiles.isOpenForWriting(node.id)) {
      keep(node, merge(node, item, change));
    } else {
      keep(node, item);
    }
  }

  // A name or contents that were changed here stay until the host has them; the rest follows it.
  const ItemRecord& merge(const Node& node, const ItemRecord& item, Change* change) {
    const bool renamedHere = change && node.filename != change->base().place.filename;
    if (change) parts_.changes.rebase(*change, item);
    ItemRecord& merged = result_.merged.emplace_back(item);
    if (renamedHere) merged.filename = node.filename;
    if (!change || change->hasContents() || isChangedHere(node)) {
      merged.size = node.size;
      merged.modified = node.modified.whole;
      merged.contentVersion = node.contentVersion;
      result_.incomplete = true;
    }
    return merged;
  }

  void keep(const Node& node, const ItemRecord& item) {
    const bool renamed = !sameName(node, item);
    if (!renamed && sameMetadata(node, item)) return;
    result_.kept.push_back({node, &item, renamed});
  }

  const SortParts& parts_;
  std::unordered_map<std::string_view, const Node*> known_;
  std::unordered_set<std::string_view> seen_;
  std::unordered_set<std::string_view> beingMade_;  // names
  SortedListing result_;
};

}  // namespace

SortedListing sortOut(const SortParts& parts) {
  return Sorter(parts).sort();
}

}  // namespace tulo
