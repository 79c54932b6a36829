#include "service/upload/HostWork.h"

#include <algorithm>

namespace tulo {

namespace {

// A host that uploads before it answers may take long; one that hangs never ends.
constexpr milliseconds kLongestSeen = std::chrono::hours(2);
// As long as the extension itself waits for an answer.
constexpr milliseconds kLongestUnseen = std::chrono::minutes(10);
constexpr milliseconds kFirstPause{250};
constexpr milliseconds kLongestWork{30000};
constexpr unsigned kDoublings = 7;

}  // namespace

Prospect HostWork::prospectOf(const Change& change, WallTime now) {
  const HostActivity activity = activity_();
  const bool absent = activity == HostActivity::absent;
  if (!absent && (!change.request.isUnanswered() || activity == HostActivity::idle)) {
    return Prospect::nothing;
  }
  std::string host = host_();
  const MutexLock lock(mutex_);
  const auto [at, first] = waits_.try_emplace(change.node(), Wait{now, host, 0});
  // Its successor looks at everything first; what it will say then is not known before.
  if (absent) return Prospect::hostAbsent;
  const Wait& wait = at->second;
  const bool seen = activity == HostActivity::busy;
  // What another host was asked for is gone with it.
  if (!seen && wait.host != host) return Prospect::nothing;
  const milliseconds longest = seen ? kLongestSeen : kLongestUnseen;
  return now - wait.begun < longest ? Prospect::something : Prospect::nothing;
}

milliseconds HostWork::pause(NodeId node) {
  const MutexLock lock(mutex_);
  const auto found = waits_.find(node);
  const unsigned looks = found == waits_.end() ? 0 : found->second.looks++;
  return std::min(kFirstPause * (1U << std::min(looks, kDoublings)), kLongestWork);
}

void HostWork::forget(NodeId node) {
  const MutexLock lock(mutex_);
  waits_.erase(node);
}

}  // namespace tulo
