#include "host/folder/FolderAccount.h"

#include <filesystem>
#include <memory>
#include <system_error>

#include "host/account/AccountName.h"
#include "host/base/Files.h"
#include "host/base/HostError.h"
#include "host/folder/FileName.h"
#include "host/folder/RootIdentity.h"
#include "host/index/IndexFailure.h"

namespace tulo::host {

namespace {

namespace fs = std::filesystem;

std::string resolvedFolder(const FolderSource& source, const AccountParts& parts) {
  if (source.path.empty()) throw StartError("the account \"" + parts.name + "\" has no folder");
  std::error_code error;
  const fs::path resolved = fs::canonical(source.path, error);
  if (error) throw StartError("the folder " + source.path + ": " + error.message());
  if (!fs::is_directory(resolved, error)) throw StartError(source.path + " is not a folder");
  if (fs::equivalent(resolved, parts.container.path(), error)) {
    throw StartError("the folder " + resolved.string() + " is the container itself");
  }
  return resolved.string();
}

}  // namespace

FolderAccount::FolderAccount(const FolderSource& source, const AccountParts& parts) try
    : root_(resolvedFolder(source, parts)),
      log_(parts.log),
      ulids_(parts.ulids),
      folder_(root_, parts.container.stat(), log_),
      work_(folder_.descriptor()),
      index_(parts.container.pathOf(indexFileName(parts.name)), accountIdentity(root_)),
      places_(folder_, index_.nodes()),
      tree_(folder_, index_, places_, ulids_),
      lookup_(index_, places_, tree_),
      mutations_({index_, places_, tree_, ulids_}, parts.quota),
      follower_({mutex_, folder_, index_, tree_, log_}),
      watcher_(log_) {
  ulids_.follow(index_.rows().greatestUlid());
  requireSameRoot(index_, folder_, parts.name);
  tree_.observeFolders(
      {[this](const std::string& ulid, int folder) { watcher_.watch(ulid, folder); },
       [this](const std::string& ulid) { watcher_.forget(ulid); },
       [this] { watcher_.lookAgain(); }});
} catch (const sqlite::DatabaseError& error) {
  throw StartError(indexFailure(error).what());
} catch (const OperationError& error) {
  throw StartError(error.what());
}

FolderAccount::~FolderAccount() {
  stop();
}

void FolderAccount::start() {
  const Followed first = withIndex([this] {
    const MutexLock lock(mutex_);
    if (work_.isThere()) {
      log_.info("removing unfinished work from " + inQuotes(root_));
      work_.clear();
    }
    tree_.scanAll();
    return tree_.hasUnread() ? Followed::partly : Followed::all;
  });
  watcher_.start(
      {[this](const std::set<Watcher::Change>& changes) { return follower_.changes(changes); },
       [this] { return follower_.everything(); }, [this] { return follower_.unread(); }},
      first);
}

void FolderAccount::stop() {
  follower_.stop();
  watcher_.stop();
  const MutexLock lock(mutex_);
  index_.database().rollback();
  try {
    index_.database().checkpoint();
  } catch (const sqlite::DatabaseError& error) {
    log_.error(indexFailure(error).what());
  }
}

AccountStatus FolderAccount::status() {
  return withIndex([this] {
    const MutexLock lock(mutex_);
    const Counts counts = index_.rows().counts();
    return AccountStatus{root_, counts.folders, counts.items, index_.state().isSignedIn()};
  });
}

bool FolderAccount::isSignedIn() {
  return withIndex([this] {
    const MutexLock lock(mutex_);
    return index_.state().isSignedIn();
  });
}

void FolderAccount::setSignedIn(bool signedIn) {
  withIndex([&] {
    const MutexLock lock(mutex_);
    IndexChanges changes(index_.database());
    index_.state().setSignedIn(signedIn);
    changes.keep();
  });
}

OpenVersion FolderAccount::openFile(const std::string& ulid) {
  return withIndex([&] {
    const MutexLock lock(mutex_);
    folder_.requireThere();
    const Node node = lookup_.require(ulid, false);
    const Place place = lookup_.requirePlace(node.parent);
    FileDescriptor file = host::openFile(place.folder.get(), node.diskName);
    if (!file) notFound(ulid);
    return OpenVersion{std::move(file), index_.rows().file(ulid).value_or(FileRow()).version};
  });
}

std::optional<std::int64_t> FolderAccount::currentVersion(const std::string& ulid) {
  return withIndex([&]() -> std::optional<std::int64_t> {
    const MutexLock lock(mutex_);
    if (!lookup_.find(ulid)) return std::nullopt;
    return index_.rows().file(ulid).value_or(FileRow()).version;
  });
}

std::string FolderAccount::create(const CreateRequest& request, const StagedCopy* contents) {
  requireValidName(request.name);
  return withIndex([&] {
    {
      // What is refused anyway is refused before anything is copied.
      const MutexLock lock(mutex_);
      folder_.requireThere();
      mutations_.checkCreate(request, contents);
    }
    WorkItem item(work_.open(), ulids_.next(), log_);
    item.fill(contents);
    const MutexLock lock(mutex_);
    folder_.requireThere();
    return mutations_.create(request, contents, item);
  });
}

void FolderAccount::modify(const ModifyRequest& request, const StagedCopy* contents) {
  if (request.name) requireValidName(*request.name);
  withIndex([&] {
    std::unique_ptr<WorkItem> item;
    if (contents != nullptr) {
      {
        const MutexLock lock(mutex_);
        folder_.requireThere();
        mutations_.checkModify(request, contents);
      }
      item = std::make_unique<WorkItem>(work_.open(), ulids_.next(), log_);
      item->fill(contents);
    }
    const MutexLock lock(mutex_);
    folder_.requireThere();
    mutations_.modify(request, contents, item.get());
  });
}

void FolderAccount::remove(const DeleteRequest& request) {
  withIndex([&] {
    // Outlives the lock: emptying a large folder must not hold up other requests.
    std::unique_ptr<WorkItem> grave;
    const MutexLock lock(mutex_);
    folder_.requireThere();
    const Node node = mutations_.requireRemovable(request);
    grave = std::make_unique<WorkItem>(work_.open(), ulids_.next(), log_);
    mutations_.remove(node, *grave);
  });
}

void FolderAccount::setLock(const std::string& path, std::optional<std::int64_t> user) {
  withIndex([&] {
    const MutexLock lock(mutex_);
    folder_.requireThere();
    const Node node = lookup_.requireAtDiskPath(path, root_);
    if (node.isFolder) throw BadRequest(inQuotes(path) + " is a folder; only files can be locked");
    IndexChanges changes(index_.database());
    index_.rows().setLock(node.ulid, user);
    changes.keep();
  });
}

}  // namespace tulo::host
