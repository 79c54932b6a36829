#include "service/errors/Reaction.h"

#include <algorithm>

#include "service/errors/Errno.h"

namespace tulo {

namespace {

using platform::NSFileProviderErrorCode;

constexpr milliseconds kFirst{500};
constexpr milliseconds kLongest = std::chrono::minutes(1);

}  // namespace

Reaction reactionTo(const platform::NSError& error) {
  if (isHandoverError(error)) return Reaction::retryHandover;
  if (error.domain == platform::NSFileProviderErrorDomain) {
    switch (static_cast<NSFileProviderErrorCode>(error.code)) {
      case NSFileProviderErrorCode::serverUnreachable:
        return Reaction::retryUnreachable;
      case NSFileProviderErrorCode::insufficientQuota:
        return Reaction::retryShown;
      case NSFileProviderErrorCode::notAuthenticated:
        return Reaction::pause;
      case NSFileProviderErrorCode::noSuchItem:
        return Reaction::lookAgain;
      case NSFileProviderErrorCode::syncAnchorExpired:
        return Reaction::retry;
      case NSFileProviderErrorCode::filenameCollision:
        return Reaction::refuse;
      case NSFileProviderErrorCode::cannotSynchronize:
        return Reaction::uncertain;
    }
  }
  if (error.domain == platform::NSCocoaErrorDomain) {
    if (error.code == platform::NSFileWriteInvalidFileNameError) return Reaction::refuse;
    if (error.code == platform::NSFileWriteOutOfSpaceError) return Reaction::retryShown;
  }
  return Reaction::uncertain;
}

std::string_view adviceFor(Reaction reaction, bool attention) {
  if (attention) {
    return "; it stays here as it is: give it another name, or run `tulo retry` when the host "
           "would take it, or `tulo discard` to give the change up";
  }
  if (reaction == Reaction::retryShown) return "; it is sent when there is room again";
  if (reaction == Reaction::retryHandover) return "; it is sent when that is over";
  if (reaction == Reaction::pause) return "; sign in there, and it is sent";
  return {};
}

// An unreachable host may also be one that was reached and went away, so that proves nothing; nor
// does what is short here: that is found out after the request has failed.
bool provesNotDone(const platform::NSError& error) {
  const Reaction reaction = reactionTo(error);
  return reaction != Reaction::uncertain && reaction != Reaction::retryUnreachable &&
         reaction != Reaction::retryHandover;
}

milliseconds backOff(std::int64_t attempts, Reaction reaction, std::uint64_t random) {
  const milliseconds longest = reaction == Reaction::retryShown ? kLongestPause : kLongest;
  const std::int64_t steps = std::clamp<std::int64_t>(attempts - 1, 0, 20);
  const milliseconds pause = std::min(kFirst * (std::int64_t{1} << steps), longest);
  // Between half and the whole of it.
  const auto spread = static_cast<std::uint64_t>((pause / 2).count() + 1);
  return pause / 2 + milliseconds(static_cast<std::int64_t>(random % spread));
}

}  // namespace tulo
