#include "host/folder/RecentChanges.h"

#include <algorithm>

namespace tulo::host {

namespace {

using std::chrono::nanoseconds;

// From a sender's look at the index to the begin of its copy, or to the arrival of its request.
constexpr std::chrono::milliseconds lookToRequest{250};
// No copy takes longer; what was noted before is of no use to anybody.
constexpr std::chrono::hours longestCopy{1};
// Worth looking through for what is that old.
constexpr std::size_t many = 10'000;

}  // namespace

void RecentChanges::note(const std::string& ulid, Clock::time_point now) {
  times_[ulid] = now;
  if (times_.size() < many) return;
  std::erase_if(times_, [&](const auto& entry) { return entry.second < now - longestCopy; });
}

std::vector<std::string> RecentChanges::since(Clock::time_point time) const {
  std::vector<std::string> result;
  for (const auto& [ulid, noted] : times_) {
    if (noted >= time) result.push_back(ulid);
  }
  return result;
}

bool RecentChanges::isSince(const std::string& ulid, Clock::time_point time) const {
  const auto found = times_.find(ulid);
  return found != times_.end() && found->second >= time;
}

// Files have the wall's time, which somebody may set; so what counts is how long ago that was.
RecentChanges::Clock::time_point RecentChanges::lookBefore(DiskTime copyBegun) {
  const nanoseconds age = std::chrono::system_clock::now() - copyBegun;
  const nanoseconds bounded = std::clamp<nanoseconds>(age, nanoseconds::zero(), longestCopy);
  return lookBefore(Clock::now() - bounded);
}

RecentChanges::Clock::time_point RecentChanges::lookBefore(Clock::time_point requestCame) {
  return requestCame - lookToRequest;
}

}  // namespace tulo::host
