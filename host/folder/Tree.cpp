#include "host/folder/Tree.h"

#include <algorithm>
#include <unordered_map>
#include <utility>

#include "host/base/Files.h"
#include "host/base/HostError.h"

namespace tulo::host {

namespace {

// A new file makes two.
constexpr std::size_t changesInOneTransaction = 8000;

}  // namespace

Tree::Tree(ServedFolder& folder, FolderIndex& index, Places& places, UlidSource& ulids)
    : folder_(folder), index_(index), places_(places), adoption_(index, places, ulids) {}

std::optional<Tree::Opened> Tree::read(const std::string& ulid) {
  try {
    Opened opened{places_.open(ulid), {}};
    // A folder that is gone is noticed by its own parent.
    if (!opened.folder) return std::nullopt;
    // Before it is read, so that no change falls between the two.
    if (observer_.added) observer_.added(ulid, opened.folder.get());
    forEachEntry(opened.folder.get(),
                 [&](const std::string& name) { opened.names.push_back(name); });
    std::sort(opened.names.begin(), opened.names.end());
    return opened;
  } catch (const OperationError& error) {
    // Nothing can be said of what is in it, least of all that it is gone.
    if (ulid == rootUlid) throw;
    folder_.tellUnreadable(ulid, shownName(ulid), error.what());
    return std::nullopt;
  }
}

std::string Tree::shownName(const std::string& ulid) {
  const auto node = index_.nodes().node(ulid);
  return node ? node->diskName : std::string();
}

void Tree::reconcileNextFolder() {
  const std::string parent = std::move(queue_.front());
  queue_.pop_front();
  const auto opened = read(parent);
  if (!opened) return;
  std::unordered_map<std::string, Node> known;
  for (Node& node : index_.nodes().children(parent))
    known.emplace(node.diskName, std::move(node));
  for (const std::string& name : opened->names) {
    const auto stat = folder_.served(parent, opened->folder.get(), name);
    if (!stat) continue;
    const auto found = known.find(name);
    const bool isKnown = found != known.end();
    reconcile(parent, name, *stat, isKnown ? std::optional<Node>(found->second) : std::nullopt);
    if (stat->isFolder && isKnown) queueFolder(found->second.ulid);
    if (isKnown) known.erase(found);
    commitWhenLarge();
  }
  for (auto& [name, node] : known)
    missing_.push_back(std::move(node.ulid));
}

void Tree::reconcileEntry(const std::string& parent, const std::string& name) {
  const auto known = index_.nodes().child(parent, name);
  if (const auto stat = places_.entry(parent, name)) {
    reconcile(parent, name, *stat, known);
  } else if (known) {
    missing_.push_back(known->ulid);
  }
  commitWhenLarge();
}

void Tree::reconcile(const std::string& parent, const std::string& name, const EntryStat& stat,
                     const std::optional<Node>& known) {
  if (known && known->isFolder == stat.isFolder) {
    if (known->isUnchanged(stat)) return;
    update(*known, stat);
    // Another folder in the same place: what is in it is news.
    if (stat.isFolder) queueFolder(known->ulid);
    return;
  }
  if (known) {
    index_.nodes().displace(known->ulid);
    missing_.push_back(known->ulid);
  }
  adopt(parent, name, stat);
}

void Tree::update(Node node, const EntryStat& stat) {
  node.fingerprint = Fingerprint::of(stat);
  index_.update(node);
}

void Tree::adopt(const std::string& parent, const std::string& name, const EntryStat& stat) {
  Adoption::Adopted adopted = adoption_.adopt(parent, name, stat);
  if (adopted.displaced) missing_.push_back(*std::move(adopted.displaced));
  if (stat.isFolder) queueFolder(std::move(adopted.ulid));
}

void Tree::finish() {
  for (const std::string& ulid : missing_) {
    const auto node = index_.nodes().node(ulid);
    if (node && !places_.hasEntryOf(*node)) removeNode(*node);
  }
  missing_.clear();
  index_.database().commit();
}

void Tree::scanAll() {
  adoption_.expectIntents(true);
  queueFolder(std::string(rootUlid));
  while (hasQueued())
    reconcileNextFolder();
  index_.intents().forgetAll();
  settle();
  adoption_.expectIntents(false);
}

void Tree::removeNode(const Node& node) {
  for (const std::string& folder : index_.remove(node.ulid)) {
    if (observer_.removed) observer_.removed(folder);
  }
}

void Tree::settle() {
  while (hasQueued())
    reconcileNextFolder();
  finish();
}

std::optional<Node> Tree::refresh(const Node& node) {
  if (places_.hasEntryOf(node)) {
    reconcileEntry(node.parent, node.diskName);
  } else {
    queueFolder(std::string(rootUlid));
  }
  settle();
  return index_.nodes().node(node.ulid);
}

void Tree::commitWhenLarge() {
  if (index_.database().pending() >= changesInOneTransaction) index_.database().commit();
}

}  // namespace tulo::host
