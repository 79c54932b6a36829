#include "host/folder/RetryPause.h"

#include <algorithm>

namespace tulo::host {

namespace {

using std::chrono::milliseconds;

constexpr milliseconds firstPause{250};
constexpr milliseconds longestPause{5000};
// Of a large folder a look at everything takes longer than that.
constexpr int pausesPerAttempt = 5;

}  // namespace

void RetryPause::failed(Clock::time_point begun, Clock::time_point now) {
  const Clock::duration grown = isPending() ? pause_ * 2 : Clock::duration(firstPause);
  pause_ = std::min<Clock::duration>(grown, longestPause);
  end_ = now + std::max<Clock::duration>(pause_, (now - begun) * pausesPerAttempt);
}

milliseconds RetryPause::waitTime(milliseconds longest, Clock::time_point now) const {
  if (!isPending()) return longest;
  const auto rest = std::chrono::ceil<milliseconds>(end_ - now);
  return std::clamp(rest, milliseconds(0), longest);
}

}  // namespace tulo::host
