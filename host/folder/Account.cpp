#include "host/folder/Account.h"

#include "host/base/HostError.h"

namespace tulo::host {

namespace {

constexpr const char* rootKey = "root";
constexpr const char* rootInodeKey = "root_inode";
constexpr const char* signedOutKey = "signed_out";

}  // namespace

std::string Account::databaseName(const std::string& account) {
  return account == primaryName ? "state.db" : "state-" + account + ".db";
}

Account::Account(const Options& options, const Container& container, UlidSource& ulids,
                 const HostLog& log)
    : name_(options.name),
      quota_(options.quota),
      log_(log),
      ulids_(ulids),
      tree_({options.root, container.pathOf(databaseName(options.name)), container.stat().device,
             container.stat().inode},
            ulids, log),
      watcher_(log) {
  requireSameRoot();
  tree_.observeFolders(
      {[this](const std::string& ulid, int folder) { watcher_.watch(ulid, folder); },
       [this](const std::string& ulid) { watcher_.forget(ulid); }});
}

Account::~Account() {
  stop();
}

// An index that followed another folder's contents would tell the system that every file of this
// account is gone.
void Account::requireSameRoot() {
  IndexStore& store = tree_.store();
  const auto before = store.state(rootKey);
  const std::string inode = std::to_string(statDescriptor(tree_.root()).inode);
  if (before && *before != root()) {
    throw StartError("the index of the account \"" + name_ +
                     "\" in this container belongs to the "
                     "folder " +
                     *before + ", not to " + root() + "; choose another --container, or remove " +
                     databaseName(name_));
  }
  if (before && store.state(rootInodeKey) != inode) {
    bool isEmpty = true;
    forEachEntry(tree_.root(), [&](const std::string&) { isEmpty = false; });
    const Counts known = store.counts();
    if (isEmpty && known.folders + known.items > 0) {
      throw StartError("the folder " + root() +
                       " is empty and not the one that was served before; "
                       "is its disk mounted? If it is meant to be empty, remove " +
                       databaseName(name_));
    }
  }
  store.setState(rootKey, root());
  store.setState(rootInodeKey, inode);
  store.commit();
}

void Account::start() {
  {
    const std::lock_guard lock(mutex_);
    tree_.clearWork();
    tree_.scanAll();
  }
  watcher_.start({[this](const std::set<Watcher::Change>& changes) { followChanges(changes); },
                  [this] { followAll(); }});
}

void Account::stop() {
  stopping_ = true;
  watcher_.stop();
  const std::lock_guard lock(mutex_);
  tree_.store().rollback();
  try {
    tree_.store().checkpoint();
  } catch (const OperationError& error) {
    log_.error(error.what());
  }
}

Counts Account::counts() {
  const std::lock_guard lock(mutex_);
  return tree_.store().counts();
}

void Account::followChanges(const std::set<Watcher::Change>& changes) {
  const std::lock_guard lock(mutex_);
  try {
    requireRoot();
    for (const auto& [folder, name] : changes)
      tree_.reconcileEntry(folder, name);
    tree_.settle();
  } catch (const OperationError& error) {
    tree_.store().rollback();
    log_.error("following changes in " + inQuotes(root()) + ": " + error.what());
  }
}

void Account::followAll() {
  log_.info("looking at all of " + inQuotes(root()) + " again");
  try {
    std::unique_lock lock(mutex_);
    requireRoot();
    tree_.queueFolder(std::string(rootUlid));
    while (tree_.hasQueued() && !stopping_) {
      tree_.reconcileNextFolder();
      // Requests go on between two folders.
      lock.unlock();
      lock.lock();
    }
    if (!stopping_) tree_.finish();
  } catch (const OperationError& error) {
    const std::lock_guard lock(mutex_);
    tree_.store().rollback();
    log_.error("looking at " + inQuotes(root()) + ": " + error.what());
  }
}

bool Account::isSignedIn() {
  const std::lock_guard lock(mutex_);
  return tree_.store().state(signedOutKey) != "yes";
}

void Account::setSignedIn(bool signedIn) {
  const std::lock_guard lock(mutex_);
  tree_.store().setState(signedOutKey, signedIn ? "no" : "yes");
  tree_.store().commit();
}

}  // namespace tulo::host
