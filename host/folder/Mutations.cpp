#include "host/folder/Mutations.h"

#include <algorithm>
#include <vector>

#include "host/base/Files.h"
#include "host/base/HostError.h"
#include "host/base/HostLog.h"

namespace tulo::host {

namespace {

using Announcement = Placement::Announcement;

std::string parentOf(const CreateRequest& request) {
  return request.parent.value_or(std::string(rootUlid));
}

}  // namespace

Mutations::Mutations(const Parts& parts, std::optional<std::int64_t> quota)
    : index_(parts.index),
      tree_(parts.tree),
      ulids_(parts.ulids),
      lookup_(parts.index, parts.places, parts.tree),
      placement_(parts.index, parts.places),
      quota_(quota) {}

void Mutations::requireUnlocked(const Node& node) {
  const bool isLocked =
      node.isFolder ? index_.rows().hasLockBelow(node.ulid)
                    : index_.rows().file(node.ulid).value_or(FileRow()).lockedBy.has_value();
  if (isLocked) {
    throw OperationError(kind::locked, inQuotes(node.diskName) + " is locked by a user");
  }
}

void Mutations::requireSeen(const Node& node, RecentChanges::Clock::time_point look) {
  if (node.isFolder) {
    tree_.queueFolder(node.ulid);
    tree_.settle();
  }
  const std::vector<std::string> recent = index_.recent().since(look);
  const bool isNews = std::any_of(recent.begin(), recent.end(), [&](const std::string& ulid) {
    return ulid == node.ulid || (node.isFolder && index_.nodes().isWithin(ulid, node.ulid));
  });
  if (!isNews) return;
  throw OperationError(kind::locked,
                       inQuotes(node.diskName) + " was changed by another program meanwhile");
}

void Mutations::requireRoom(std::int64_t more) {
  if (!quota_ || more <= 0) return;
  if (index_.rows().totalSize() + more > *quota_) {
    throw OperationError(kind::quota,
                         "the account's quota of " + std::to_string(*quota_) + " bytes is full");
  }
}

void Mutations::checkCreate(const CreateRequest& request, const StagedCopy* contents) {
  lookup_.requirePlace(parentOf(request));
  if (contents != nullptr) requireRoom(contents->size());
}

std::string Mutations::create(const CreateRequest& request, const StagedCopy* contents,
                              const WorkItem& item) {
  const Place place = lookup_.requirePlace(parentOf(request));
  if (contents != nullptr) {
    requireRoom(contents->size());
  } else if (auto existing = existingFolder(place.ulid, request.name)) {
    return *std::move(existing);
  }
  IndexChanges changes(index_.database());
  const EntryStat stat = item.stat();
  Node node{ulids_.next(), place.ulid, {}, stat.isFolder, Fingerprint::of(stat)};
  placement_.moveToFreeName(item.folder(), item.name(), place, node, request.name,
                            Announcement::needed);
  index_.add(node, request.name);
  index_.intents().forgetAll();
  if (node.isFolder) tree_.queueFolder(node.ulid);
  tree_.settle();
  changes.keep();
  return node.ulid;
}

// Making a folder twice gives the folder that is there, also one that another program has just
// made: two of one name would never be told apart.
std::optional<std::string> Mutations::existingFolder(const std::string& parent,
                                                     const std::string& name) {
  tree_.reconcileEntry(parent, name);
  tree_.settle();
  const auto ulid = index_.rows().folderNamed(parent, name);
  const auto node = ulid ? lookup_.find(*ulid) : std::nullopt;
  if (!node) return std::nullopt;
  return node->ulid;
}

Node Mutations::requireModifiable(const ModifyRequest& request, const StagedCopy* contents) {
  Node node = lookup_.require(request.ulid, request.isFolder);
  requireUnlocked(node);
  if (contents == nullptr) return node;
  if (contents->isFolder() != node.isFolder) {
    throw BadRequest(std::string("the staged contents are ") +
                     (contents->isFolder() ? "a folder" : "a file") + ", the item is not");
  }
  requireSeen(node, RecentChanges::lookBefore(contents->begun()));
  requireRoom(contents->size() - index_.rows().file(node.ulid).value_or(FileRow()).size);
  return node;
}

Mutations::Target Mutations::targetOf(const ModifyRequest& request, const Node& node) {
  const std::string shownName = index_.rows().nameOf(node.ulid);
  const std::string parent =
      request.parent ? request.parent->value_or(std::string(rootUlid)) : node.parent;
  Target target{lookup_.requirePlace(parent), request.name.value_or(shownName)};
  target.moves = parent != node.parent || target.shownName != shownName;
  if (node.isFolder && index_.nodes().isWithin(parent, node.ulid)) {
    throw BadRequest("a folder cannot be moved into itself");
  }
  return target;
}

void Mutations::checkModify(const ModifyRequest& request, const StagedCopy* contents) {
  targetOf(request, requireModifiable(request, contents));
}

void Mutations::modify(const ModifyRequest& request, const StagedCopy* contents,
                       const WorkItem* item) {
  const Node node = requireModifiable(request, contents);
  const Target target = targetOf(request, node);
  IndexChanges changes(index_.database());
  apply(target, node, item);
  tree_.settle();
  changes.keep();
}

void Mutations::apply(const Target& target, Node node, const WorkItem* item) {
  const Place before = lookup_.requirePlace(node.parent);
  const std::string diskNameBefore = node.diskName;
  if (item != nullptr) node.fingerprint = Fingerprint::of(item->stat());
  const bool keepsDiskName = target.place.ulid == node.parent && target.shownName == node.diskName;
  if (target.moves && !keepsDiskName) {
    node.parent = target.place.ulid;
    placement_.moveToFreeName(before.folder.get(), diskNameBefore, target.place, node,
                              target.shownName,
                              item != nullptr ? Announcement::needed : Announcement::needless);
  }
  if (target.moves) index_.place(node.ulid, node.parent, node.diskName, target.shownName);
  if (item != nullptr) replace(target, node, *item, before, diskNameBefore);
}

void Mutations::replace(const Target& target, const Node& node, const WorkItem& item,
                        const Place& before, const std::string& diskNameBefore) {
  try {
    replaceContents(item, target.place, node.diskName);
  } catch (const OperationError&) {
    // All or nothing: the item goes back to where it was.
    moveEntry(target.place.folder.get(), node.diskName, before.folder.get(), diskNameBefore);
    throw;
  }
  index_.update(node);
  if (node.isFolder) tree_.queueFolder(node.ulid);
  index_.intents().forgetAll();
}

Node Mutations::requireRemovable(const DeleteRequest& request) {
  Node node = lookup_.require(request.ulid, request.isFolder);
  requireUnlocked(node);
  requireSeen(node, RecentChanges::lookBefore(request.came));
  return node;
}

void Mutations::remove(const Node& node, const WorkItem& grave) {
  const Place place = lookup_.requirePlace(node.parent);
  IndexChanges changes(index_.database());
  if (moveEntry(place.folder.get(), node.diskName, grave.folder(), grave.name()) ==
      MoveResult::otherFileSystem) {
    removeTree(place.folder.get(), node.diskName);
  }
  syncDescriptor(place.folder.get());
  tree_.removeNode(node);
  tree_.settle();
  changes.keep();
}

}  // namespace tulo::host
