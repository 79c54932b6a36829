// What becomes of a change that the provider refused.
//
// Threads: pure functions.
#pragma once

#include <cstdint>
#include <string_view>

#include "platform/Error.h"
#include "service/base/Time.h"

namespace tulo {

enum class Reaction {
  retryUnreachable,  // for ever, and at once when the host is back; one at a time until then
  retry,             // for ever, with growing pauses
  retryShown,        // the same, and the user is told
  retryHandover,     // the same: something is short on this machine
  pause,             // nothing goes up until somebody has signed in
  lookAgain,         // the host does not have the item: find out what that means
  uncertain,         // may have been done: look, and try a few times before giving up
  refuse,            // waits for the user
};

Reaction reactionTo(const platform::NSError& error);

// What the user can do about it; to be put behind the words of the error.
std::string_view adviceFor(Reaction reaction, bool attention);

// Whether the error proves that the host did nothing.
bool provesNotDone(const platform::NSError& error);

// An uncertain change that failed so often is refused.
inline constexpr std::int64_t kUncertainAttempts = 5;

// No pause is longer.
inline constexpr milliseconds kLongestPause = std::chrono::minutes(5);

// The pause before the next attempt: doubling, capped, and spread by `random` (any number) so that
// not everything comes back at once.
milliseconds backOff(std::int64_t attempts, Reaction reaction, std::uint64_t random);

}  // namespace tulo
