#include "service/contents/RoomWaiters.h"

#include <utility>

namespace tulo {

bool RoomWaiters::add(const DownloadPointer& download, bool othersComing) {
  const Clock::time_point now = now_();
  if (othersComing || !download->waitsSince) download->waitsSince = now;
  if (now - *download->waitsSince >= kPatience) return false;
  const MutexLock lock(mutex_);
  waiting_.push_back(download);
  return true;
}

std::vector<DownloadPointer> RoomWaiters::takeAll() {
  const MutexLock lock(mutex_);
  return std::exchange(waiting_, {});
}

}  // namespace tulo
