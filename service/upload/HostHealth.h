// How many requests the host may be asked at a time, from how the last ones went.
//
// One item may be locked at the host, which looks the same as a host that cannot be reached; when
// several cannot be sent, and none can, it is the host. Then, and while nobody is signed in, one
// attempt after each pause finds out when that is over.
//
// Threads: every member may be called on any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <random>
#include <unordered_set>

#include "platform/linux/Mutex.h"
#include "service/base/Time.h"
#include "service/errors/Reaction.h"
#include "service/replica/Ids.h"

namespace tulo {

class HostHealth {
 public:
  static constexpr std::size_t kParallel = 6;

  // How many may be on their way at the same time.
  std::size_t room(WallTime now) const TULO_EXCLUDES(mutex_);

  struct Failure {
    std::uint64_t random = 0;  // spreads the next attempts
    bool stopsAll = false;     // nothing else goes up either
  };
  Failure failed(NodeId node, Reaction reaction, WallTime now) TULO_EXCLUDES(mutex_);
  // The host did what it was asked. True when others were kept back until then.
  bool reached() TULO_EXCLUDES(mutex_);

  // Ends the pause: somebody may have signed in meanwhile.
  void lookNow(WallTime now) TULO_EXCLUDES(mutex_);
  // As if nothing had failed.
  void reset() TULO_EXCLUDES(mutex_);

  bool isPaused() const TULO_EXCLUDES(mutex_);
  bool isReachable() const TULO_EXCLUDES(mutex_);

 private:
  void unreachable(NodeId node, WallTime now) TULO_REQUIRES(mutex_);

  // A leaf.
  mutable Mutex mutex_;
  bool reachable_ TULO_GUARDED_BY(mutex_) = true;
  WallTime pausedUntil_ TULO_GUARDED_BY(mutex_){};
  std::int64_t pauses_ TULO_GUARDED_BY(mutex_) = 0;
  WallTime probeAt_ TULO_GUARDED_BY(mutex_){};
  std::int64_t probes_ TULO_GUARDED_BY(mutex_) = 0;
  // Could not be sent since the last one that could.
  std::unordered_set<NodeId> failedNodes_ TULO_GUARDED_BY(mutex_);
  std::minstd_rand random_ TULO_GUARDED_BY(mutex_){std::random_device{}()};
};

}  // namespace tulo
