#include "service/AccountGuard.h"

#include "service/base/FileMark.h"
#include "service/base/ServiceLog.h"
#include "service/errors/ContentError.h"

namespace tulo {

namespace {

std::string counted(std::int64_t changes) {
  return std::to_string(changes) + (changes == 1 ? " change of it was" : " changes of it were");
}

std::string wordsFor(const control::KeptAccount& kept) {
  return "the account of " + kept.container + " was mounted here before, and " +
         counted(kept.changes) +
         " not sent; they are kept, and are sent after the next mount with --container " +
         kept.container + "; its changed files are also in " + kept.files;
}

}  // namespace

AccountGuard::AccountGuard(const std::string& stateDirectory, const SourceFiles& source)
    : note_(stateDirectory + "/account"), source_(source) {
  AccountFolder folder(stateDirectory);
  seen_ = lookedAt();
  const AccountIdentity found = identityAt(source.directory, source.database);
  const AccountFolder::Change change = folder.settle(found);
  known_ = readIdentity(note_).value_or(found);
  for (const KeptReplica& each : folder.kept())
    kept_.push_back({each.identity.container, each.changes, each.files()});
  tell(change);
}

void AccountGuard::tell(AccountFolder::Change change) {
  if (change == AccountFolder::Change::begun) {
    serviceLog().info("another account was mounted here before, all of which its host has", {});
  }
  for (const control::KeptAccount& each : kept_) {
    notice_ += (notice_.empty() ? "" : "\n") + wordsFor(each);
    serviceLog().info("%{public}@", {wordsFor(each)});
  }
}

std::string AccountGuard::lookedAt() const {
  return fileMark(source_.directory) + ' ' + fileMark(source_.directory + '/' + source_.database);
}

void AccountGuard::learn(const AccountIdentity& found) {
  const AccountIdentity known = joined(known_, found);
  if (known == known_) return;
  known_ = known;
  try {
    writeIdentity(note_, known_);
  } catch (const ContentError& error) {
    // The next start learns it again.
    serviceLog().error("cannot note whose the replica is: %{public}@", {error.what()});
  }
}

bool AccountGuard::holds() {
  const MutexLock lock(mutex_);
  const std::string now = lookedAt();
  // Without the host's word it may come later, into the same file.
  if (now == seen_ && (!known_.account.empty() || !holds_)) return holds_;
  const AccountIdentity found = identityAt(source_.directory, source_.database);
  const bool fits = areOfOneAccount(known_, found);
  if (fits) learn(found);
  if (!fits && holds_) {
    serviceLog().error(
        "%{public}@ has another account than the one that is mounted; nothing is sent to it, and "
        "the next mount shows it",
        {source_.directory});
  }
  seen_ = now;
  holds_ = fits;
  return fits;
}

}  // namespace tulo
