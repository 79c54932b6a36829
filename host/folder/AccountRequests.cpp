// The requests of an account.

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

#include "host/base/HostError.h"
#include "host/folder/Account.h"
#include "host/folder/FileName.h"

namespace tulo::host {

// Changes of the index that are dropped unless they are kept.
class Account::Changes {
 public:
  explicit Changes(Tree& tree) : tree_(tree) {}
  ~Changes() {
    if (!kept_) tree_.store().rollback();
  }
  Changes(const Changes&) = delete;
  Changes& operator=(const Changes&) = delete;

  void keep() {
    tree_.settle();
    kept_ = true;
  }

 private:
  Tree& tree_;
  bool kept_ = false;
};

namespace {

constexpr unsigned mostVariants = 10'000;

void requireValidName(const std::string& name) {
  if (const std::string why = whyInvalidName(name); !why.empty()) {
    throw OperationError(kind::invalidName, why);
  }
}

[[noreturn]] void notFound(const std::string& ulid) {
  throw OperationError(kind::notFound, "there is no item " + inQuotes(ulid));
}

std::vector<std::string> components(const std::string& path) {
  std::vector<std::string> names;
  std::size_t from = 0;
  while (from <= path.size()) {
    const std::size_t to = std::min(path.find('/', from), path.size());
    const std::string name = path.substr(from, to - from);
    if (name == "..") throw BadRequest("the path " + inQuotes(path) + " contains \"..\"");
    if (!name.empty() && name != ".") names.push_back(name);
    from = to + 1;
  }
  return names;
}

}  // namespace

void Account::requireRoot() {
  if (tree_.rootIsThere()) {
    toldRootGone_ = false;
    return;
  }
  const std::string message = "the folder " + root() + " has been moved or removed";
  if (!toldRootGone_) log_.error(message + "; the index stays as it is until it is back");
  toldRootGone_ = true;
  throw OperationError(kind::network, message);
}

Node Account::requireNode(const std::string& ulid, bool isFolder) {
  auto node = tree_.store().node(ulid);
  if (node) node = tree_.refresh(*node);
  if (!node || node->isFolder != isFolder) notFound(ulid);
  return *node;
}

Account::Place Account::requirePlace(const std::string& ulid) {
  FileDescriptor folder = tree_.openFolderOf(ulid);
  if (!folder) {
    // It may just have been moved by another program.
    requireNode(ulid, true);
    folder = tree_.openFolderOf(ulid);
  }
  if (!folder) notFound(ulid);
  return {ulid, std::move(folder)};
}

void Account::requireUnlocked(const Node& node) {
  const bool isLocked = node.isFolder ? tree_.store().hasLockBelow(node.ulid)
                                      : tree_.store().row(node).lockedBy.has_value();
  if (isLocked) {
    throw OperationError(kind::locked, inQuotes(node.diskName) + " is locked by a user");
  }
}

void Account::requireRoom(std::int64_t more) {
  if (!quota_ || more <= 0) return;
  if (tree_.store().totalSize() + more > *quota_) {
    throw OperationError(kind::quota,
                         "the account's quota of " + std::to_string(*quota_) + " bytes is full");
  }
}

void Account::setLock(const std::string& path, std::optional<std::int64_t> user) {
  const std::lock_guard lock(mutex_);
  requireRoot();
  const Node node = requireAtDiskPath(path);
  if (node.isFolder) throw BadRequest(inQuotes(path) + " is a folder; only files can be locked");
  tree_.store().setLock(node.ulid, user);
  tree_.store().commit();
}

Node Account::requireAtDiskPath(const std::string& path) {
  std::optional<Node> node;
  std::string parent(rootUlid);
  for (const std::string& name : components(path)) {
    tree_.reconcileEntry(parent, name);
    tree_.settle();
    node = tree_.store().child(parent, name);
    if (!node) break;
    parent = node->ulid;
  }
  if (!node) {
    throw OperationError(kind::notFound,
                         "there is no " + inQuotes(path) + " in " + inQuotes(root()));
  }
  return *node;
}

Account::OpenFile Account::openFile(const std::string& ulid) {
  const std::lock_guard lock(mutex_);
  requireRoot();
  const Node node = requireNode(ulid, false);
  const Place place = requirePlace(node.parent);
  FileDescriptor file = host::openFile(place.folder.get(), node.diskName);
  if (!file) notFound(ulid);
  return {std::move(file), tree_.store().row(node).version};
}

std::optional<std::int64_t> Account::currentVersion(const std::string& ulid) {
  const std::lock_guard lock(mutex_);
  auto node = tree_.store().node(ulid);
  if (node) node = tree_.refresh(*node);
  if (!node) return std::nullopt;
  return tree_.store().row(*node).version;
}

std::string Account::create(const CreateRequest& request, const StagedCopy* contents) {
  requireValidName(request.name);
  const std::string parent = request.parent.value_or(std::string(rootUlid));
  {
    // What is refused anyway is refused before anything is copied.
    const std::lock_guard lock(mutex_);
    requireRoot();
    requirePlace(parent);
    if (contents != nullptr) requireRoom(contents->size());
  }
  WorkItem item(tree_.openWork(), ulids_.next(), log_);
  if (contents != nullptr) {
    item.take(*contents);
  } else {
    item.makeEmptyFolder();
  }

  const std::lock_guard lock(mutex_);
  requireRoot();
  const Place place = requirePlace(parent);
  if (contents != nullptr) {
    requireRoom(contents->size());
  } else if (auto existing = existingFolder(request)) {
    return *existing;
  }
  Changes changes(tree_);
  Node node;
  node.ulid = ulids_.next();
  node.parent = parent;
  put(item, place, node, request.name);
  changes.keep();
  return node.ulid;
}

// Making a folder twice gives the folder that is there: two of one name would never be told apart.
std::optional<std::string> Account::existingFolder(const CreateRequest& request) {
  auto node =
      tree_.store().folderShownAs(request.parent.value_or(std::string(rootUlid)), request.name);
  if (node) node = tree_.refresh(*node);
  if (!node) return std::nullopt;
  return node->ulid;
}

void Account::put(const WorkItem& item, const Place& place, Node& node,
                  const std::string& shownName) {
  const EntryStat stat = item.stat();
  node.isFolder = stat.isFolder;
  node.setFingerprint(stat);
  moveToFreeName(item.folder(), item.name(), place, node, shownName, true);
  tree_.store().insert(node, shownName);
  tree_.store().forgetIntents();
  if (node.isFolder) tree_.queueFolder(node.ulid);
}

void Account::moveToFreeName(int fromFolder, const std::string& from, const Place& to, Node& node,
                             const std::string& shownName, bool intends) {
  IndexStore& store = tree_.store();
  for (unsigned number = 1; number <= mostVariants; ++number) {
    node.diskName = diskNameVariant(shownName, number);
    if (!tree_.isFree(to.ulid, to.folder.get(), node.diskName)) continue;
    if (intends) {
      store.intend(node, shownName);
      store.commit();
    }
    const MoveResult result = moveEntry(fromFolder, from, to.folder.get(), node.diskName);
    if (result == MoveResult::taken) continue;
    if (result == MoveResult::otherFileSystem) {
      throw OperationError(kind::io, "the target folder lies on another file system");
    }
    syncDescriptor(to.folder.get());
    syncDescriptor(fromFolder);
    return;
  }
  throw OperationError(kind::invalidName, "there are too many items named " + inQuotes(shownName));
}

Node Account::requireModifiable(const ModifyRequest& request, const StagedCopy* contents) {
  requireRoot();
  Node node = requireNode(request.ulid, request.isFolder);
  requireUnlocked(node);
  if (contents != nullptr) {
    if (contents->isFolder() != node.isFolder) {
      throw BadRequest(std::string("the staged contents are ") +
                       (contents->isFolder() ? "a folder" : "a file") + ", the item is not");
    }
    requireRoom(contents->size() - (node.isFolder ? 0 : tree_.store().row(node).size));
  }
  return node;
}

Account::Target Account::targetOf(const ModifyRequest& request, const Node& node) {
  const std::string shownName = tree_.store().row(node).name;
  const std::string parent =
      request.parent ? request.parent->value_or(std::string(rootUlid)) : node.parent;
  Target target{requirePlace(parent), request.name.value_or(shownName)};
  target.moves = parent != node.parent || target.shownName != shownName;
  if (node.isFolder && tree_.store().isWithin(parent, node.ulid)) {
    throw BadRequest("a folder cannot be moved into itself");
  }
  return target;
}

void Account::modify(const ModifyRequest& request, const StagedCopy* contents) {
  if (request.name) requireValidName(*request.name);
  std::optional<WorkItem> item;
  if (contents != nullptr) {
    {
      const std::lock_guard lock(mutex_);
      targetOf(request, requireModifiable(request, contents));
    }
    item.emplace(tree_.openWork(), ulids_.next(), log_);
    item->take(*contents);
  }
  const std::lock_guard lock(mutex_);
  const Node node = requireModifiable(request, contents);
  const Target target = targetOf(request, node);
  Changes changes(tree_);
  applyModify(target, node, item ? &*item : nullptr);
  changes.keep();
}

void Account::applyModify(const Target& target, Node node, WorkItem* item) {
  const Place before = requirePlace(node.parent);
  const std::string diskNameBefore = node.diskName;
  IndexStore& store = tree_.store();
  if (item != nullptr) node.setFingerprint(item->stat());
  const bool keepsDiskName = target.place.ulid == node.parent && target.shownName == node.diskName;
  if (target.moves && !keepsDiskName) {
    node.parent = target.place.ulid;
    moveToFreeName(before.folder.get(), diskNameBefore, target.place, node, target.shownName,
                   item != nullptr);
  }
  if (target.moves) store.place(node.ulid, node.parent, node.diskName, target.shownName);
  if (item == nullptr) return;
  try {
    replaceContents(*item, target.place, node.diskName);
  } catch (const OperationError&) {
    // All or nothing: the item goes back to where it was.
    moveEntry(target.place.folder.get(), node.diskName, before.folder.get(), diskNameBefore);
    throw;
  }
  if (node.isFolder) {
    store.updateFingerprint(node);
    tree_.queueFolder(node.ulid);
  } else {
    store.updateContents(node);
  }
  store.forgetIntents();
}

void Account::replaceContents(const WorkItem& item, const Place& place,
                              const std::string& diskName) {
  const auto old = statEntry(place.folder.get(), diskName);
  if (!old) notFound(diskName);
  const FileDescriptor fresh = old->isFolder ? openFolder(item.folder(), item.name())
                                             : host::openFile(item.folder(), item.name());
  // A file stays as executable, or as private, as it was.
  if (fresh) static_cast<void>(::fchmod(fresh.get(), old->mode & 0777));
  if (!exchangeEntries(item.folder(), item.name(), place.folder.get(), diskName)) {
    if (old->isFolder) throw OperationError(kind::io, "the file system cannot replace a folder");
    replaceFile(item.folder(), item.name(), place.folder.get(), diskName);
  }
  syncDescriptor(place.folder.get());
}

void Account::remove(const DeleteRequest& request) {
  // Outlives the lock: emptying a large folder must not hold up other requests.
  std::optional<WorkItem> grave;
  const std::lock_guard lock(mutex_);
  requireRoot();
  const Node node = requireNode(request.ulid, request.isFolder);
  requireUnlocked(node);
  const Place place = requirePlace(node.parent);
  Changes changes(tree_);
  grave.emplace(tree_.openWork(), ulids_.next(), log_);
  if (moveEntry(place.folder.get(), node.diskName, grave->folder(), grave->name()) ==
      MoveResult::otherFileSystem) {
    removeTree(place.folder.get(), node.diskName);
  }
  syncDescriptor(place.folder.get());
  tree_.removeNode(node);
  changes.keep();
}

}  // namespace tulo::host
