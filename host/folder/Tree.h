// One account's folder on the disk together with its index, and how the second follows the first.
//
// What is served: folders and regular files. Not served, and never followed: symbolic links,
// special files, folders of another file system, the shared container, and the host's own working
// folder.
//
// An entry keeps its identifier as long as it keeps its place (an editor that saves by renaming a
// new file over the old one changes a file, it does not make one), or else as long as it can be
// recognised by its inode and time of birth.
//
// Threads: not thread-safe; the account guards it. Errors: OperationError.
#pragma once

#include <cstddef>
#include <deque>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "host/base/Files.h"
#include "host/base/HostLog.h"
#include "host/index/IndexStore.h"
#include "host/index/Ulid.h"

namespace tulo::host {

class Tree {
 public:
  struct Options {
    std::string root;
    std::string databasePath;
    // The folder that is never served, wherever it lies.
    std::uint64_t containerDevice = 0;
    std::uint64_t containerInode = 0;
  };

  // Called with a folder that is served from now on, and with one that no longer is.
  struct FolderObserver {
    std::function<void(const std::string& ulid, int folder)> added;
    std::function<void(const std::string& ulid)> removed;
  };

  // The name of the folder at the top of the root in which the host prepares its writes.
  static constexpr const char* workName = ".tulo-host";

  // `ulids` and `log` must outlive the tree.
  Tree(const Options& options, UlidSource& ulids, const HostLog& log);

  void observeFolders(FolderObserver observer) { observer_ = std::move(observer); }

  IndexStore& store() { return store_; }
  int root() const { return root_.get(); }
  const std::string& rootPath() const { return rootPath_; }

  // A folder by its identifier; an invalid descriptor if it is not (or no longer) there.
  FileDescriptor openFolderOf(std::string_view ulid);
  // The working folder, made when it is missing.
  FileDescriptor openWork();
  // Removes what a crash left in the working folder.
  void clearWork();
  // Nothing for an entry that is not there or is not served.
  std::optional<EntryStat> served(std::string_view parent, int folder, const std::string& name);
  // Whether `name` can be given to a new entry of the folder.
  bool isFree(std::string_view parent, int folder, const std::string& name);

  // The steps of a reconciliation. Deletions wait for finish(), so that an entry that has moved is
  // found in its new place first.
  void queueFolder(std::string ulid) { queue_.push_back(std::move(ulid)); }
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

  // Whether the root is still the folder that its path names. While it is not, nothing must be
  // concluded from what is missing in it.
  bool rootIsThere() const;

  // Brings one node up to date before a request uses it. Nothing if it is gone, and so is its row.
  // One that is not in its place is looked for everywhere: another program may just have moved it.
  std::optional<Node> refresh(const Node& node);

 private:
  // Opens a folder, has it watched and reads it; nothing if that cannot be done.
  std::optional<std::vector<std::string>> namesIn(const std::string& ulid, FileDescriptor& folder);
  void reconcile(const std::string& parent, const std::string& name, const EntryStat& stat,
                 const std::optional<Node>& known);
  void update(Node node, const EntryStat& stat);
  void adopt(const std::string& parent, const std::string& name, const EntryStat& stat);
  bool completeIntent(const std::string& parent, const std::string& name, const EntryStat& stat);
  std::optional<Node> movedNode(const EntryStat& stat);
  bool hasEntryAtItsPlace(const Node& node);
  void moveHere(Node node, const std::string& parent, const std::string& name,
                const EntryStat& stat);
  void detachFrom(const std::string& ancestor, const std::string& ulid);
  // An empty name stands for the folder itself.
  void tellOnce(std::string_view parent, const std::string& name, std::string_view reason);
  void commitWhenLarge();

  std::string rootPath_;
  FileDescriptor root_;
  std::uint64_t rootDevice_ = 0;
  std::uint64_t containerDevice_;
  std::uint64_t containerInode_;
  IndexStore store_;
  UlidSource& ulids_;
  const HostLog& log_;
  FolderObserver observer_;
  std::deque<std::string> queue_;
  std::vector<std::string> missing_;
  std::set<std::string> told_;
  bool hasIntents_ = false;
};

}  // namespace tulo::host
