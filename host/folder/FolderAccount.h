// The account that is a local folder.
//
// Threads: as Account. Errors: as Account; StartError for the constructor.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "host/account/Account.h"
#include "host/account/AccountParts.h"
#include "host/base/HostLog.h"
#include "host/folder/FolderIndex.h"
#include "host/folder/Follower.h"
#include "host/folder/Lookup.h"
#include "host/folder/Mutations.h"
#include "host/folder/Places.h"
#include "host/folder/ServedFolder.h"
#include "host/folder/Tree.h"
#include "host/folder/Watcher.h"
#include "host/folder/WorkFolder.h"
#include "host/folder/WorkItem.h"
#include "host/index/Ulid.h"
#include "platform/linux/Mutex.h"

namespace tulo::host {

// Where such an account is: the folder's path as the user gave it.
struct FolderSource {
  std::string path;
};

class FolderAccount : public Account {
 public:
  FolderAccount(const FolderSource& source, const AccountParts& parts);
  ~FolderAccount() override;

  void start() override TULO_EXCLUDES(mutex_);
  void stop() override TULO_EXCLUDES(mutex_);
  AccountStatus status() override TULO_EXCLUDES(mutex_);
  bool isSignedIn() override TULO_EXCLUDES(mutex_);
  void setSignedIn(bool signedIn) override TULO_EXCLUDES(mutex_);
  OpenVersion openFile(const std::string& ulid) override TULO_EXCLUDES(mutex_);
  std::optional<std::int64_t> currentVersion(const std::string& ulid) override
      TULO_EXCLUDES(mutex_);
  std::string create(const CreateRequest& request, const StagedCopy* contents) override
      TULO_EXCLUDES(mutex_);
  void modify(const ModifyRequest& request, const StagedCopy* contents) override
      TULO_EXCLUDES(mutex_);
  void remove(const DeleteRequest& request) override TULO_EXCLUDES(mutex_);
  void setLock(const std::string& path, std::optional<std::int64_t> user) override
      TULO_EXCLUDES(mutex_);

 private:
  const std::string root_;
  const HostLog& log_;
  UlidSource& ulids_;
  // Held while the folder and the index change together, never while contents are copied: a large
  // upload must not stop a listing.
  Mutex mutex_;
  ServedFolder folder_ TULO_GUARDED_BY(mutex_);
  const WorkFolder work_;
  FolderIndex index_ TULO_GUARDED_BY(mutex_);
  Places places_ TULO_GUARDED_BY(mutex_);
  Tree tree_ TULO_GUARDED_BY(mutex_);
  Lookup lookup_ TULO_GUARDED_BY(mutex_);
  Mutations mutations_ TULO_GUARDED_BY(mutex_);
  Follower follower_;
  Watcher watcher_;
};

}  // namespace tulo::host
