// Sees to it that nothing of one account goes to another: what was kept here is of the account that
// the container has, when the service begins and as long as it runs.
//
// Threads: every member may be called on any thread.
#pragma once

#include <string>
#include <vector>

#include "platform/linux/Mutex.h"
#include "service/control/StatusReply.h"
#include "service/listing/SourceWatch.h"
#include "service/replica/AccountFolder.h"
#include "service/replica/AccountIdentity.h"

namespace tulo {

class AccountGuard {
 public:
  // Leaves in the state directory what is of the account, before anything there is opened. Throws
  // ContentError.
  AccountGuard(const std::string& stateDirectory, const SourceFiles& source);

  // What became of another account's replica, and where its unsent changes are, for the user; empty
  // when there is nothing to say.
  const std::string& notice() const { return notice_; }
  const std::vector<control::KeptAccount>& kept() const { return kept_; }

  // Whether the container still has the account. Costs little as long as the index is the same
  // file.
  bool holds() TULO_EXCLUDES(mutex_);

 private:
  // Which files the last answer was about.
  std::string lookedAt() const;
  void tell(AccountFolder::Change change);
  void learn(const AccountIdentity& found) TULO_REQUIRES(mutex_);

  const std::string note_;
  const SourceFiles source_;
  std::string notice_;
  std::vector<control::KeptAccount> kept_;
  Mutex mutex_;  // held while the index is asked
  AccountIdentity known_ TULO_GUARDED_BY(mutex_);
  std::string seen_ TULO_GUARDED_BY(mutex_);
  bool holds_ TULO_GUARDED_BY(mutex_) = true;
};

}  // namespace tulo
