#include "host/folder/Follower.h"

#include "host/base/HostError.h"
#include "host/index/IndexDatabase.h"
#include "host/index/IndexFailure.h"

namespace tulo::host {

namespace {

// Requests wait no longer than this for a look at everything.
constexpr std::chrono::milliseconds slice{50};

}  // namespace

Follower::Follower(const Parts& parts)
    : mutex_(parts.mutex),
      folder_(parts.folder),
      index_(parts.index),
      tree_(parts.tree),
      log_(parts.log),
      root_(inQuotes(parts.folder.path())) {}

Followed Follower::changes(const std::set<Watcher::Change>& changes) {
  return follow("following changes in ", [&]() TULO_REQUIRES(mutex_) {
    for (const auto& [folder, name] : changes)
      tree_.reconcileEntry(folder, name);
    tree_.settle();
  });
}

Followed Follower::unread() {
  return follow("looking at ", [&]() TULO_REQUIRES(mutex_) {
    tree_.queueUnread();
    tree_.settle();
  });
}

Followed Follower::everything() {
  // Said once, and not again with each attempt.
  if (failure_.empty()) log_.info("looking at all of " + root_ + " again");
  return follow("looking at ", [&]() TULO_REQUIRES(mutex_) {
    tree_.queueAll();
    while (lookAtSome())
      letOthersIn();
  });
}

Followed Follower::follow(const std::string& what, const std::function<void()>& work) {
  try {
    return withIndex([&] {
      const MutexLock lock(mutex_);
      IndexChanges indexChanges(index_.database());
      folder_.requireThere();
      work();
      indexChanges.keep();
      tell({});
      return tree_.hasUnread() ? Followed::partly : Followed::all;
    });
  } catch (const OperationError& error) {
    tell(what + root_ + ": " + error.what());
    return Followed::failed;
  }
}

bool Follower::lookAtSome() {
  const auto end = Clock::now() + slice;
  while (tree_.hasQueued() && !stopping_) {
    tree_.reconcileNextFolder();
    if (Clock::now() >= end && tree_.isConsistent()) return true;
  }
  if (!stopping_) tree_.finish();
  return false;
}

void Follower::letOthersIn() {
  // A request that fails takes back what is not committed.
  index_.database().commit();
  mutex_.unlock();
  mutex_.lock();
}

void Follower::tell(const std::string& failure) {
  if (failure == failure_) return;
  if (failure.empty()) {
    log_.info("following " + root_ + " again");
  } else {
    log_.error(failure);
  }
  failure_ = failure;
}

}  // namespace tulo::host
