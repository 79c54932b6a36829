#include "host/folder/Tree.h"

#include <utility>

namespace tulo::host {

namespace {

// A new file makes two.
constexpr std::size_t changesInOneTransaction = 8000;

}  // namespace

Tree::Tree(ServedFolder& folder, FolderIndex& index, Places& places, UlidSource& ulids)
    : index_(index),
      places_(places),
      reader_(folder, places, index.nodes()),
      adoption_(index, places, ulids) {}

void Tree::observeFolders(FolderObserver observer) {
  observer_ = std::move(observer);
  reader_.observe(observer_.added);
}

void Tree::wholly(const std::function<void()>& work) {
  try {
    work();
  } catch (...) {
    abandon();
    throw;
  }
}

void Tree::abandon() {
  index_.database().rollback();
  queue_.clear();
  missing_.clear();
  hasDisplaced_ = false;
  if (observer_.lost) observer_.lost();
}

void Tree::queueAll() {
  queue_.clear();
  reader_.takeUnread();
  missing_.clear();
  // A host that was killed may have left some.
  for (Node& node : index_.nodes().displaced())
    missing_.push_back(std::move(node.ulid));
  queueFolder(std::string(rootUlid));
}

void Tree::queueUnread() {
  for (const std::string& folder : reader_.takeUnread())
    queueFolder(folder);
}

void Tree::reconcileNextFolder() {
  wholly([this] {
    const std::string parent = std::move(queue_.front());
    queue_.pop_front();
    if (const auto opened = reader_.read(parent)) reconcileFolder(parent, *opened);
  });
}

void Tree::reconcileFolder(const std::string& parent, const FolderReader::Opened& opened) {
  Known known;
  for (Node& node : index_.nodes().children(parent))
    known.emplace(node.diskName, std::move(node));
  for (const std::string& name : opened.names)
    reconcileListed(parent, name, reader_.entry(parent, opened, name), known);
  for (auto& [name, node] : known)
    missing_.push_back(std::move(node.ulid));
}

void Tree::reconcileListed(const std::string& parent, const std::string& name,
                           const FolderReader::Entry& entry, Known& known) {
  if (!entry.isRead) known.erase(name);
  if (!entry.stat) return;
  const auto found = known.find(name);
  const bool isKnown = found != known.end();
  reconcile(parent, name, *entry.stat, isKnown ? std::optional<Node>(found->second) : std::nullopt);
  if (entry.stat->isFolder && isKnown) queueFolder(found->second.ulid);
  if (isKnown) known.erase(found);
  commitWhenLarge();
}

void Tree::reconcileEntry(const std::string& parent, const std::string& name) {
  wholly([&] {
    const FolderReader::Entry entry = reader_.entry(parent, name);
    if (!entry.isRead) return;
    const auto known = index_.nodes().child(parent, name);
    if (entry.stat) {
      reconcile(parent, name, *entry.stat, known);
    } else if (known) {
      missing_.push_back(known->ulid);
    }
    commitWhenLarge();
  });
}

void Tree::reconcile(const std::string& parent, const std::string& name, const EntryStat& stat,
                     const std::optional<Node>& known) {
  if (known && known->isFolder == stat.isFolder) {
    // It may have been made readable.
    if (reader_.isUnread(known->ulid)) queueFolder(known->ulid);
    if (known->isUnchanged(stat)) return;
    Node node = *known;
    node.fingerprint = Fingerprint::of(stat);
    index_.update(node);
    index_.recent().note(node.ulid);
    // Another folder in the same place: what is in it is news.
    if (stat.isFolder) queueFolder(known->ulid);
    return;
  }
  if (known) {
    index_.nodes().displace(known->ulid);
    hasDisplaced_ = true;
    missing_.push_back(known->ulid);
  }
  adopt(parent, name, stat);
}

void Tree::adopt(const std::string& parent, const std::string& name, const EntryStat& stat) {
  Adoption::Adopted adopted = adoption_.adopt(parent, name, stat);
  index_.recent().note(adopted.ulid);
  if (adopted.displaced) {
    hasDisplaced_ = true;
    missing_.push_back(*std::move(adopted.displaced));
  }
  if (stat.isFolder) queueFolder(std::move(adopted.ulid));
}

void Tree::finish() {
  wholly([this] {
    for (const std::string& ulid : missing_) {
      const auto node = index_.nodes().node(ulid);
      if (node && reader_.isGone(*node)) removeNode(*node);
    }
    missing_.clear();
    hasDisplaced_ = false;
    index_.database().commit();
  });
}

void Tree::scanAll() {
  // Of an empty index nobody has seen anything that could be another version by now.
  const bool isFirst = index_.rows().greatestUlid().empty();
  adoption_.expectIntents(true);
  queueAll();
  while (hasQueued())
    reconcileNextFolder();
  index_.intents().forgetAll();
  settle();
  adoption_.expectIntents(false);
  if (isFirst) index_.recent().forgetAll();
}

void Tree::removeNode(const Node& node) {
  for (const std::string& folder : index_.remove(node.ulid)) {
    reader_.forget(folder);
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
  if (!isConsistent()) return;
  if (index_.database().pending() >= changesInOneTransaction) index_.database().commit();
}

}  // namespace tulo::host
