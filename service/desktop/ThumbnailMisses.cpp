#include "service/desktop/ThumbnailMisses.h"

namespace tulo {

namespace {

std::string keyOf(const ThumbnailFile& file) {
  return file.identifier + '\0' + std::to_string(file.original.modified.time_since_epoch().count());
}

}  // namespace

void ThumbnailMisses::add(const ThumbnailFile& file) {
  const MutexLock lock(mutex_);
  if (until_.size() >= kMost) until_.clear();
  until_[keyOf(file)] = clock_() + kRemembered;
}

bool ThumbnailMisses::has(const ThumbnailFile& file) const {
  const MutexLock lock(mutex_);
  const auto found = until_.find(keyOf(file));
  return found != until_.end() && clock_() < found->second;
}

void ThumbnailMisses::clear() {
  const MutexLock lock(mutex_);
  until_.clear();
}

}  // namespace tulo
