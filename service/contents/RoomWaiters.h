// Downloads for which there is no room as long as others are on their way, or as what others read
// stays open.
//
// They wait for one another rather than fail: whoever reads a file closes it soon. Where nothing
// comes and nothing goes for a while, waiting is given up.
//
// Threads: every member may be called on any thread.
#pragma once

#include <chrono>
#include <functional>
#include <utility>
#include <vector>

#include "platform/linux/Mutex.h"
#include "service/contents/Download.h"

namespace tulo {

class RoomWaiters {
 public:
  using Clock = std::chrono::steady_clock;
  static constexpr std::chrono::seconds kPatience{5};

  explicit RoomWaiters(std::function<Clock::time_point()> now = Clock::now)
      : now_(std::move(now)) {}

  // False when it has waited long enough, and in vain. `othersComing`: as long as others are on
  // their way, the wait does not count.
  bool add(const DownloadPointer& download, bool othersComing) TULO_EXCLUDES(mutex_);
  // All that wait, to be tried again.
  std::vector<DownloadPointer> takeAll() TULO_EXCLUDES(mutex_);

 private:
  const std::function<Clock::time_point()> now_;
  // A leaf.
  Mutex mutex_;
  std::vector<DownloadPointer> waiting_ TULO_GUARDED_BY(mutex_);
};

}  // namespace tulo
