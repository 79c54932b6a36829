// How the index of an account is brought up to date with what the watcher tells, and with what
// could not be looked at before.
//
// Threads: the watcher's; stop() on any. Errors: none leaves it, what fails is logged and told.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <set>
#include <string>

#include "host/base/HostLog.h"
#include "host/folder/FolderIndex.h"
#include "host/folder/Followed.h"
#include "host/folder/ServedFolder.h"
#include "host/folder/Tree.h"
#include "host/folder/Watcher.h"
#include "platform/linux/Mutex.h"

namespace tulo::host {

class Follower {
 public:
  // The account's, which outlive the follower; all but the log are used with the lock held.
  struct Parts {
    Mutex& mutex;
    ServedFolder& folder;
    FolderIndex& index;
    Tree& tree;
    const HostLog& log;
  };

  explicit Follower(const Parts& parts);

  Followed changes(const std::set<Watcher::Change>& changes) TULO_EXCLUDES(mutex_);
  Followed everything() TULO_EXCLUDES(mutex_);
  // The folders that could not be read, once more.
  Followed unread() TULO_EXCLUDES(mutex_);
  // What is under way ends soon.
  void stop() { stopping_ = true; }

 private:
  using Clock = std::chrono::steady_clock;

  // Does the work, with the lock held, as a change of the index; what it throws is told.
  Followed follow(const std::string& what, const std::function<void()>& work) TULO_EXCLUDES(mutex_);
  // A part of a look at everything; whether there is more.
  bool lookAtSome() TULO_REQUIRES(mutex_);
  void letOthersIn() TULO_REQUIRES(mutex_);
  // Logs what is new of it; empty: there is none.
  void tell(const std::string& failure);

  Mutex& mutex_;
  ServedFolder& folder_ TULO_GUARDED_BY(mutex_);
  FolderIndex& index_ TULO_GUARDED_BY(mutex_);
  Tree& tree_ TULO_GUARDED_BY(mutex_);
  const HostLog& log_;
  // In quotes.
  const std::string root_;
  // What was told last, until it is over.
  std::string failure_;
  std::atomic<bool> stopping_{false};
};

}  // namespace tulo::host
