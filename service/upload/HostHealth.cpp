#include "service/upload/HostHealth.h"

#include <algorithm>

namespace tulo {

namespace {

// So many items in a row that could not be sent mean that none can.
constexpr std::size_t kHostIsDown = 3;
// The longest pause between two looks whether the host is back.
constexpr milliseconds kProbe{15000};

// A pause that lies farther away than any can be was set by a clock that was ahead.
bool lasts(WallTime until, WallTime now) {
  return until > now && until <= now + kLongestPause;
}

}  // namespace

std::size_t HostHealth::room(WallTime now) const {
  const MutexLock lock(mutex_);
  if (lasts(pausedUntil_, now) || lasts(probeAt_, now)) return 0;
  const bool probing = !reachable_ || pausedUntil_ != WallTime{};
  return probing ? 1 : kParallel;
}

HostHealth::Failure HostHealth::failed(NodeId node, Reaction reaction, WallTime now) {
  const MutexLock lock(mutex_);
  Failure failure;
  failure.random = random_();
  if (reaction == Reaction::retryUnreachable) unreachable(node, now);
  if (reaction == Reaction::pause) {
    pausedUntil_ = now + backOff(++pauses_, reaction, failure.random);
  }
  failure.stopsAll = !reachable_ || reaction == Reaction::pause;
  return failure;
}

void HostHealth::unreachable(NodeId node, WallTime now) {
  failedNodes_.insert(node);
  if (failedNodes_.size() < kHostIsDown) return;
  reachable_ = false;
  probeAt_ = now + std::min(backOff(++probes_, Reaction::retryUnreachable, random_()), kProbe);
}

bool HostHealth::reached() {
  const MutexLock lock(mutex_);
  pauses_ = 0;
  probes_ = 0;
  failedNodes_.clear();
  return !reachable_ || pausedUntil_ != WallTime{};
}

void HostHealth::lookNow(WallTime now) {
  const MutexLock lock(mutex_);
  pausedUntil_ = std::min(pausedUntil_, now);
  probeAt_ = std::min(probeAt_, now);
}

void HostHealth::reset() {
  const MutexLock lock(mutex_);
  pausedUntil_ = {};
  probeAt_ = {};
  reachable_ = true;
  failedNodes_.clear();
}

bool HostHealth::isPaused() const {
  const MutexLock lock(mutex_);
  return pausedUntil_ != WallTime{};
}

bool HostHealth::isReachable() const {
  const MutexLock lock(mutex_);
  return reachable_;
}

}  // namespace tulo
