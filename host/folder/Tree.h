// How the index of an account follows its folder on the disk.
//
// An entry keeps its identifier as long as it keeps its place (an editor that saves by renaming a
// new file over the old one changes a file, it does not make one), or else as long as it can be
// recognised by its inode and time of birth.
//
// What fails leaves the index as it was at the last commit, and what has been noticed meanwhile is
// lost until everything is looked at; that a folder cannot be read is no failure (FolderReader.h).
//
// Threads: not thread-safe; the account guards it. Errors: OperationError, sqlite::DatabaseError.
#pragma once

#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "host/base/EntryStat.h"
#include "host/folder/Adoption.h"
#include "host/folder/FolderIndex.h"
#include "host/folder/FolderReader.h"
#include "host/folder/Node.h"
#include "host/folder/Places.h"
#include "host/folder/ServedFolder.h"
#include "host/index/Ulid.h"

namespace tulo::host {

class Tree {
 public:
  // Called with a folder that is served from now on, with one that no longer is, and when a failure
  // has lost what was noticed.
  struct FolderObserver {
    std::function<void(const std::string& ulid, int folder)> added;
    std::function<void(const std::string& ulid)> removed;
    std::function<void()> lost;
  };

  // All must outlive the tree.
  Tree(ServedFolder& folder, FolderIndex& index, Places& places, UlidSource& ulids);

  void observeFolders(FolderObserver observer);

  // The steps of a reconciliation. Deletions wait for finish(), so that an entry that has moved is
  // found in its new place first.
  void queueFolder(std::string ulid) { queue_.push_back(std::move(ulid)); }
  // Everything, instead of what is queued.
  void queueAll();
  // The folders that could not be read.
  void queueUnread();
  bool hasUnread() const { return reader_.hasUnread(); }
  // Whether what is in the index may be seen: no item is between two places.
  bool isConsistent() const { return !hasDisplaced_; }
  bool hasQueued() const { return !queue_.empty(); }
  void reconcileNextFolder();
  void reconcileEntry(const std::string& parent, const std::string& name);
  void finish();
  // The rest of the queue, then finish().
  void settle();
  // Drops a node and all below it from the index.
  void removeNode(const Node& node);

  // The first look at everything, after which nothing is left of an earlier run's unfinished work.
  void scanAll();

  // Brings one node up to date before a request uses it. Nothing if it is gone, and so is its row.
  // One that is not in its place is looked for everywhere: another program may just have moved it.
  std::optional<Node> refresh(const Node& node);

 private:
  using Known = std::unordered_map<std::string, Node>;

  // Does the work, after which nothing is left half done.
  void wholly(const std::function<void()>& work);
  void reconcileFolder(const std::string& parent, const FolderReader::Opened& opened);
  void reconcileListed(const std::string& parent, const std::string& name,
                       const FolderReader::Entry& entry, Known& known);
  void reconcile(const std::string& parent, const std::string& name, const EntryStat& stat,
                 const std::optional<Node>& known);
  void adopt(const std::string& parent, const std::string& name, const EntryStat& stat);
  void abandon();
  void commitWhenLarge();

  FolderIndex& index_;
  Places& places_;
  FolderReader reader_;
  Adoption adoption_;
  FolderObserver observer_;
  std::deque<std::string> queue_;
  std::vector<std::string> missing_;
  // An item has given its place to another one, and where it is now is still to be seen.
  bool hasDisplaced_ = false;
};

}  // namespace tulo::host
