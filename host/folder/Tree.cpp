#include "host/folder/Tree.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <unordered_map>

#include "host/base/HostError.h"

namespace tulo::host {

namespace {

constexpr std::size_t changesInOneTransaction = 4000;
constexpr std::size_t mostSkippedTold = 200;
constexpr std::size_t deepestFolder = 10'000;

FileDescriptor duplicate(int fd) {
  return FileDescriptor(::fcntl(fd, F_DUPFD_CLOEXEC, 0));
}

}  // namespace

Tree::Tree(const Options& options, UlidSource& ulids, const HostLog& log)
    : rootPath_(options.root),
      root_(openFolderPath(options.root)),
      containerDevice_(options.containerDevice),
      containerInode_(options.containerInode),
      store_(options.databasePath),
      ulids_(ulids),
      log_(log) {
  rootDevice_ = statDescriptor(root_.get()).device;
  ulids_.follow(store_.greatestUlid());
}

FileDescriptor Tree::openFolderOf(std::string_view ulid) {
  std::vector<std::string> names;
  std::string current(ulid);
  while (current != rootUlid) {
    const auto node = store_.node(current);
    if (!node || !node->isFolder || names.size() > deepestFolder) return {};
    names.push_back(node->diskName);
    current = node->parent;
  }
  FileDescriptor folder = duplicate(root_.get());
  for (auto name = names.rbegin(); folder && name != names.rend(); ++name) {
    folder = openFolder(folder.get(), *name);
  }
  return folder;
}

FileDescriptor Tree::openWork() {
  return makeFolder(root_.get(), workName);
}

void Tree::clearWork() {
  if (!statEntry(root_.get(), workName)) return;
  log_.info("removing unfinished work from " + inQuotes(rootPath_));
  removeTree(root_.get(), workName);
}

std::optional<EntryStat> Tree::served(std::string_view parent, int folder,
                                      const std::string& name) {
  if (parent == rootUlid && name == workName) return std::nullopt;
  const auto stat = statEntry(folder, name);
  if (!stat) return std::nullopt;
  if (stat->isOther()) {
    tellOnce(parent, name, "is neither a file nor a folder");
    return std::nullopt;
  }
  if (stat->device == containerDevice_ && stat->inode == containerInode_) {
    tellOnce(parent, name, "is the shared container");
    return std::nullopt;
  }
  if (stat->isFolder && stat->device != rootDevice_) {
    tellOnce(parent, name, "lies on another file system");
    return std::nullopt;
  }
  return stat;
}

bool Tree::isFree(std::string_view parent, int folder, const std::string& name) {
  if (parent == rootUlid && name == workName) return false;
  return !statEntry(folder, name) && !store_.child(parent, name);
}

void Tree::tellOnce(std::string_view parent, const std::string& name, std::string_view reason) {
  if (told_.size() >= mostSkippedTold) return;
  if (!told_.insert(std::string(parent) + "/" + name).second) return;
  const auto node = name.empty() ? store_.node(parent) : std::nullopt;
  log_.info("not serving " + inQuotes(node ? node->diskName : name) + ": it " +
            std::string(reason));
  if (told_.size() == mostSkippedTold) log_.info("further entries are left out without a word");
}

std::optional<std::vector<std::string>> Tree::namesIn(const std::string& ulid,
                                                      FileDescriptor& folder) {
  try {
    folder = openFolderOf(ulid);
    // A folder that is gone is noticed by its own parent.
    if (!folder) return std::nullopt;
    // Before it is read, so that no change falls between the two.
    if (observer_.added) observer_.added(ulid, folder.get());
    std::vector<std::string> names;
    forEachEntry(folder.get(), [&](const std::string& name) { names.push_back(name); });
    std::sort(names.begin(), names.end());
    return names;
  } catch (const OperationError& error) {
    // Nothing can be said of what is in it, least of all that it is gone.
    if (ulid == rootUlid) throw;
    tellOnce(ulid, "",
             "cannot be read, and what is known of it stays: " + std::string(error.what()));
    return std::nullopt;
  }
}

void Tree::reconcileNextFolder() {
  const std::string parent = std::move(queue_.front());
  queue_.pop_front();
  FileDescriptor folder;
  const auto names = namesIn(parent, folder);
  if (!names) return;
  std::unordered_map<std::string, Node> known;
  for (Node& node : store_.children(parent))
    known.emplace(node.diskName, std::move(node));
  for (const std::string& name : *names) {
    const auto stat = served(parent, folder.get(), name);
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
  const auto known = store_.child(parent, name);
  const FileDescriptor folder = openFolderOf(parent);
  const auto stat = folder ? served(parent, folder.get(), name) : std::nullopt;
  if (stat) {
    reconcile(parent, name, *stat, known);
  } else if (known) {
    missing_.push_back(known->ulid);
  }
  commitWhenLarge();
}

void Tree::reconcile(const std::string& parent, const std::string& name, const EntryStat& stat,
                     const std::optional<Node>& known) {
  if (known && known->isFolder == stat.isFolder) {
    if (!known->hasFingerprint(stat)) {
      update(*known, stat);
      // Another folder in the same place: what is in it is news.
      if (stat.isFolder) queueFolder(known->ulid);
    }
    return;
  }
  if (known) {
    store_.displace(known->ulid);
    missing_.push_back(known->ulid);
  }
  adopt(parent, name, stat);
}

void Tree::update(Node node, const EntryStat& stat) {
  node.setFingerprint(stat);
  if (node.isFolder) {
    store_.updateFingerprint(node);
  } else {
    store_.updateContents(node);
  }
}

void Tree::adopt(const std::string& parent, const std::string& name, const EntryStat& stat) {
  if (hasIntents_ && completeIntent(parent, name, stat)) return;
  if (auto moved = movedNode(stat)) {
    moveHere(std::move(*moved), parent, name, stat);
    return;
  }
  Node node;
  node.ulid = ulids_.next();
  node.parent = parent;
  node.diskName = name;
  node.isFolder = stat.isFolder;
  node.setFingerprint(stat);
  store_.insert(node, name);
  if (node.isFolder) queueFolder(node.ulid);
}

bool Tree::completeIntent(const std::string& parent, const std::string& name,
                          const EntryStat& stat) {
  const auto intent = store_.intent(stat);
  if (!intent || intent->parent != parent || intent->diskName != name) return false;
  auto node = store_.node(intent->ulid);
  if (node && node->isFolder != stat.isFolder) return false;
  if (node) {
    store_.place(node->ulid, parent, name, intent->shownName);
    if (!node->hasFingerprint(stat)) update(*node, stat);
  } else {
    node = Node{intent->ulid, parent, name, stat.isFolder};
    node->setFingerprint(stat);
    store_.insert(*node, intent->shownName);
  }
  if (node->isFolder) queueFolder(node->ulid);
  return true;
}

std::optional<Node> Tree::movedNode(const EntryStat& stat) {
  for (Node& node : store_.nodesWithInode(stat.inode)) {
    if (node.isFolder != stat.isFolder || node.birthNs != stat.birthNs) continue;
    // Without a time of birth an inode that was used again looks like the file before it.
    if (stat.birthNs == 0 && !node.hasFingerprint(stat)) continue;
    // Whatever is in its old place keeps the identifier: a second name of the same file, or the
    // new contents that an editor has put there after moving the old ones aside.
    if (!hasEntryAtItsPlace(node)) return node;
  }
  return std::nullopt;
}

bool Tree::hasEntryAtItsPlace(const Node& node) {
  const FileDescriptor folder = openFolderOf(node.parent);
  const auto stat = folder ? served(node.parent, folder.get(), node.diskName) : std::nullopt;
  return stat && stat->isFolder == node.isFolder;
}

void Tree::moveHere(Node node, const std::string& parent, const std::string& name,
                    const EntryStat& stat) {
  if (node.isFolder) detachFrom(node.ulid, parent);
  const std::string shown = node.diskName == name ? store_.row(node).name : name;
  store_.place(node.ulid, parent, name, shown);
  if (!node.hasFingerprint(stat)) update(node, stat);
  if (node.isFolder) queueFolder(node.ulid);
}

void Tree::detachFrom(const std::string& ancestor, const std::string& ulid) {
  if (!store_.isWithin(ulid, ancestor)) return;
  // On the disk nothing lies within itself: the branch of `ulid` has left `ancestor`, and its new
  // place is still to be seen.
  std::string branch = ulid;
  for (auto node = store_.node(branch); node && node->parent != ancestor;
       node = store_.node(branch)) {
    branch = node->parent;
  }
  store_.displace(branch);
  missing_.push_back(branch);
}

void Tree::finish() {
  for (const std::string& ulid : missing_) {
    const auto node = store_.node(ulid);
    if (!node) continue;
    if (!hasEntryAtItsPlace(*node)) removeNode(*node);
  }
  missing_.clear();
  store_.commit();
}

void Tree::scanAll() {
  hasIntents_ = true;
  queueFolder(std::string(rootUlid));
  while (hasQueued())
    reconcileNextFolder();
  store_.forgetIntents();
  settle();
  hasIntents_ = false;
}

bool Tree::rootIsThere() const {
  const auto stat = statEntry(AT_FDCWD, rootPath_);
  const EntryStat opened = statDescriptor(root_.get());
  return stat && stat->device == opened.device && stat->inode == opened.inode;
}

void Tree::removeNode(const Node& node) {
  for (const std::string& folder : store_.remove(node.ulid)) {
    if (observer_.removed) observer_.removed(folder);
  }
}

void Tree::settle() {
  while (hasQueued())
    reconcileNextFolder();
  finish();
}

std::optional<Node> Tree::refresh(const Node& node) {
  if (hasEntryAtItsPlace(node)) {
    reconcileEntry(node.parent, node.diskName);
  } else {
    queueFolder(std::string(rootUlid));
  }
  settle();
  return store_.node(node.ulid);
}

void Tree::commitWhenLarge() {
  if (store_.pending() >= changesInOneTransaction) store_.commit();
}

}  // namespace tulo::host
