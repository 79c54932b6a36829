// Which files the host gave no thumbnail of, for a while.
//
// The host does not say whether it has no image or cannot answer now, so it is asked again later.
//
// Threads: every member may be called on any thread.
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <unordered_map>

#include "platform/FileProvider.h"
#include "platform/linux/Mutex.h"
#include "service/desktop/DesktopThumbnails.h"

namespace tulo {

struct ThumbnailFile {
  platform::NSFileProviderItemIdentifier identifier;
  ThumbnailOriginal original;
};

class ThumbnailMisses {
 public:
  static constexpr std::chrono::minutes kRemembered{10};
  // Enough for the folders that wait; when they are more, the oldest knowledge is not worth a
  // search.
  static constexpr std::size_t kMost = 20'000;

  using Clock = std::function<std::chrono::steady_clock::time_point()>;

  explicit ThumbnailMisses(Clock clock) : clock_(std::move(clock)) {}

  void add(const ThumbnailFile& file) TULO_EXCLUDES(mutex_);
  // Of this version of the file.
  bool has(const ThumbnailFile& file) const TULO_EXCLUDES(mutex_);
  void clear() TULO_EXCLUDES(mutex_);

 private:
  const Clock clock_;
  // A leaf.
  mutable Mutex mutex_;
  // By identifier and time of modification: until when not to ask again.
  std::unordered_map<std::string, std::chrono::steady_clock::time_point> until_
      TULO_GUARDED_BY(mutex_);
};

}  // namespace tulo
