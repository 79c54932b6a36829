// The folder in which a domain's replica is, and whose account that replica is of.
//
// A domain has one replica in use. Where the account behind the domain is another one than before,
// the replica is set aside as a whole, in "kept/<number>", if it holds anything that the host has
// not got, and removed otherwise. It comes back when its account does.
//
// Threads: one, before anything in the folder is opened and with the domain's lock held.
// Errors: ContentError. Interrupted at any point, the next one goes on where it stopped.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "service/replica/AccountIdentity.h"

namespace tulo {

// A replica that was set aside.
struct KeptReplica {
  std::string folder;
  AccountIdentity identity;
  std::int64_t changes = 0;

  // The changed files in it, as files.
  std::string files() const { return folder + "/files"; }
};

class AccountFolder {
 public:
  explicit AccountFolder(std::string directory) : directory_(std::move(directory)) {}

  enum class Change {
    none,      // the replica is of this account, or there was none
    begun,     // one of another account was removed, all of which its host has
    setAside,  // one of another account was kept
    returned,  // this account's own came back
  };
  // Leaves a replica in use that is of this account, or none.
  Change settle(const AccountIdentity& found);

  std::vector<KeptReplica> kept() const;

 private:
  std::string path(const std::string& name) const { return directory_ + '/' + name; }
  void resume() const;
  void noteIfPossible(const AccountIdentity& identity) const;
  bool belongsHere(const AccountIdentity& noted, const AccountIdentity& found) const;
  Change leave() const;
  void setAside() const;
  void finishSettingAside() const;
  bool bringBack(const AccountIdentity& found) const;
  void finishReturning() const;
  void discard() const;

  const std::string directory_;
};

}  // namespace tulo
