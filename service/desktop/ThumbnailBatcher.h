// Brings the host's thumbnails of the folders that somebody listed to where the desktop looks for
// them, in batches, one at a time, at low priority.
//
// Only the folders listed last wait for their turn (kMostFolders): a program that walks the whole
// tree does not make the host draw all of it. Files that already have their thumbnail are not
// asked for again, nor, for a while, those that the host gave none of.
//
// Threads: every member may be called on any thread.
// Lifetime: callbacks of the provider that come after stop() are harmless.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include "platform/FileProvider.h"
#include "platform/linux/Mutex.h"
#include "service/desktop/DesktopThumbnails.h"
#include "service/desktop/ThumbnailBatch.h"
#include "service/desktop/ThumbnailMisses.h"

namespace tulo {

// Gives the files of a folder a page at a time; an empty page ends them. Called on the batcher's
// thread, and must not throw.
using ThumbnailPages = std::function<std::vector<ThumbnailFile>()>;

class ThumbnailBatcher {
 public:
  static constexpr std::size_t kBatch = 32;
  static constexpr std::size_t kMostFolders = 64;

  using Clock = ThumbnailMisses::Clock;

  ThumbnailBatcher(std::shared_ptr<platform::NSFileProviderThumbnailing> source,
                   DesktopThumbnails desktop, Clock clock = std::chrono::steady_clock::now);
  ~ThumbnailBatcher();
  ThumbnailBatcher(const ThumbnailBatcher&) = delete;
  ThumbnailBatcher& operator=(const ThumbnailBatcher&) = delete;

  // Somebody listed the folder, whichever number stands for it. It is next in turn; what was left
  // to do of it from before is forgotten.
  void listed(std::uint64_t folder, ThumbnailPages files);

  // Asks the host for at most one batch and waits for its end. False when nothing is left to do,
  // or after stop().
  bool step();

  // From now on steps run by themselves, on a thread of low priority.
  void start();

  // Cancels the batch that runs and drops the rest. Returns once no step runs any more.
  void stop();

  // The host came back: what it had no image of is worth asking again.
  void forgetMisses() { misses_.clear(); }

 private:
  struct Folder {
    std::uint64_t number = 0;
    ThumbnailPages pages;
    std::deque<ThumbnailFile> files;
  };

  std::vector<ThumbnailFile> nextFiles() TULO_REQUIRES(stepMutex_);
  bool isWanted(const ThumbnailFile& file) const;
  std::shared_ptr<Folder> frontFolder() TULO_EXCLUDES(mutex_);
  void drop(const std::shared_ptr<Folder>& folder) TULO_EXCLUDES(mutex_);
  void fetch(const std::vector<ThumbnailFile>& files) TULO_REQUIRES(stepMutex_);
  // False after stop(): nothing is to be asked for.
  bool begin(const std::shared_ptr<ThumbnailBatch>& batch) TULO_EXCLUDES(mutex_);
  void request(const std::vector<ThumbnailFile>& files,
               const std::shared_ptr<ThumbnailBatch>& batch);
  void end() TULO_EXCLUDES(mutex_);
  bool isStopped() TULO_EXCLUDES(mutex_);
  // False when there will be none any more.
  bool waitForWork() TULO_EXCLUDES(mutex_);
  void run();

  const std::shared_ptr<platform::NSFileProviderThumbnailing> source_;
  const DesktopThumbnails desktop_;
  ThumbnailMisses misses_;

  // One step at a time. Taken before mutex_ and held during a whole step; folders' pages are read
  // under it alone.
  Mutex stepMutex_;

  // A leaf, never held during a request or while a folder gives its page.
  Mutex mutex_;
  Condition changed_;
  // The one listed last is in front.
  std::deque<std::shared_ptr<Folder>> folders_ TULO_GUARDED_BY(mutex_);
  std::shared_ptr<ThumbnailBatch> running_ TULO_GUARDED_BY(mutex_);
  bool stopped_ TULO_GUARDED_BY(mutex_) = false;

  std::thread thread_;
};

}  // namespace tulo
