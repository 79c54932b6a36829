// One account: its tree, its watcher, and what the requests do with them.
//
// Threads: every member may be called on any thread; start() and stop() once each, by the owner.
// Errors: OperationError for a request, StartError for the constructor.
// Whatever changes the tree has changed the index, durably, when the call returns.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "host/account/Container.h"
#include "host/account/Request.h"
#include "host/account/Staging.h"
#include "host/base/HostLog.h"
#include "host/folder/Tree.h"
#include "host/folder/Watcher.h"
#include "host/folder/WorkItem.h"
#include "host/index/Ulid.h"

namespace tulo::host {

class Account {
 public:
  struct Options {
    std::string name;
    std::string root;
    // The most bytes that its files may have together, where there is such a bound.
    std::optional<std::int64_t> quota;
  };

  struct OpenFile {
    FileDescriptor file;
    std::int64_t version = 0;
  };

  static constexpr const char* primaryName = "primary";
  static std::string databaseName(const std::string& account);

  // All references must outlive the account.
  Account(const Options& options, const Container& container, UlidSource& ulids,
          const HostLog& log);
  ~Account();

  // Brings the index up to date with the folder, and keeps it so from then on.
  void start();
  void stop();

  const std::string& name() const { return name_; }
  const std::string& root() const { return tree_.rootPath(); }
  Counts counts();

  bool isSignedIn();
  void setSignedIn(bool signedIn);
  void setLock(const std::string& path, std::optional<std::int64_t> user);

  OpenFile openFile(const std::string& ulid);
  // The version of a file that is looked at afresh; nothing when it is gone.
  std::optional<std::int64_t> currentVersion(const std::string& ulid);
  std::string create(const CreateRequest& request, const StagedCopy* contents);
  void modify(const ModifyRequest& request, const StagedCopy* contents);
  void remove(const DeleteRequest& request);

 private:
  class Changes;

  // A folder that is open for a change of what is in it.
  struct Place {
    std::string ulid;
    FileDescriptor folder;
  };

  // Where a modify wants its item, and under which name.
  struct Target {
    Place place;
    std::string shownName;
    bool moves = false;
  };

  void requireSameRoot();
  void requireRoot();
  void followChanges(const std::set<Watcher::Change>& changes);
  void followAll();

  // All of these with the mutex held.
  Node requireNode(const std::string& ulid, bool isFolder);
  Node requireAtDiskPath(const std::string& path);
  Place requirePlace(const std::string& ulid);
  void requireUnlocked(const Node& node);
  void requireRoom(std::int64_t more);
  Node requireModifiable(const ModifyRequest& request, const StagedCopy* contents);
  std::optional<std::string> existingFolder(const CreateRequest& request);
  // Moves an entry to where `node` says and, if that name is taken, to the next one that is free;
  // `node.diskName` is the one it got. With `intends` the index knows of it beforehand.
  void moveToFreeName(int fromFolder, const std::string& from, const Place& to, Node& node,
                      const std::string& shownName, bool intends);
  void put(const WorkItem& item, const Place& place, Node& node, const std::string& shownName);
  Target targetOf(const ModifyRequest& request, const Node& node);
  void applyModify(const Target& target, Node node, WorkItem* item);
  void replaceContents(const WorkItem& item, const Place& place, const std::string& diskName);

  std::string name_;
  std::optional<std::int64_t> quota_;
  const HostLog& log_;
  UlidSource& ulids_;
  // Guards the tree. Held while the folder and the index change together, never while contents are
  // copied: a large upload must not stop a listing.
  std::mutex mutex_;
  Tree tree_;
  Watcher watcher_;
  std::atomic<bool> stopping_{false};
  bool toldRootGone_ = false;
};

}  // namespace tulo::host
