// How long is waited for a host that may still be at work on a request whose answer will not come.
//
// As long as it is seen to be at something that was left behind; where it cannot be seen, as long
// as the same host runs. Both have a generous end: a host may hang.
//
// Threads: every member may be called on any thread.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <unordered_map>
#include <utility>

#include "platform/linux/Mutex.h"
#include "service/base/Time.h"
#include "service/replica/Change.h"
#include "service/upload/HostActivity.h"

namespace tulo {

// What may still come of a request whose answer will not.
enum class Prospect {
  nothing,     // what is not there now will not be there later
  something,   // the host may be at work on it
  hostAbsent,  // nobody is there who could be; what the next host will say is not known before
};

class HostWork {
 public:
  // `host` tells one running host from the next.
  HostWork(std::function<HostActivity()> activity, std::function<std::string()> host)
      : activity_(std::move(activity)), host_(std::move(host)) {}

  // Of the change's request. Asked before it is looked for at the host: what the host does after
  // that is not missed by the next look.
  Prospect prospectOf(const Change& change, WallTime now) TULO_EXCLUDES(mutex_);
  // The pause before the next look; they grow.
  milliseconds pause(NodeId node) TULO_EXCLUDES(mutex_);
  // What became of the request is known.
  void forget(NodeId node) TULO_EXCLUDES(mutex_);

 private:
  // Since the first look.
  struct Wait {
    WallTime begun{};
    std::string host;
    unsigned looks = 0;
  };

  const std::function<HostActivity()> activity_;
  const std::function<std::string()> host_;
  // A leaf.
  Mutex mutex_;
  std::unordered_map<NodeId, Wait> waits_ TULO_GUARDED_BY(mutex_);
};

}  // namespace tulo
