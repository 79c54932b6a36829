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

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include "platform/FileProvider.h"
#include "service/desktop/DesktopThumbnails.h"

namespace tulo {

struct ThumbnailFile {
  platform::NSFileProviderItemIdentifier identifier;
  ThumbnailOriginal original;
};

// Gives the files of a folder a page at a time; an empty page ends them. Called on the batcher's
// thread, and must not throw.
using ThumbnailPages = std::function<std::vector<ThumbnailFile>()>;

class ThumbnailBatcher {
 public:
  static constexpr std::size_t kBatch = 32;
  static constexpr std::size_t kMostFolders = 64;
  // The host does not say whether it has no image or cannot answer now, so it is asked again.
  static constexpr std::chrono::minutes kMissRemembered{10};

  using Clock = std::function<std::chrono::steady_clock::time_point()>;

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
  void forgetMisses();

 private:
  struct Folder {
    std::uint64_t number = 0;
    ThumbnailPages pages;
    std::deque<ThumbnailFile> files;
  };
  // What the provider's callbacks write to; it outlives the batcher for those that come late.
  struct Batch;

  std::vector<ThumbnailFile> nextFiles();
  bool isWanted(const ThumbnailFile& file);
  std::shared_ptr<Folder> frontFolder();
  void drop(const std::shared_ptr<Folder>& folder);
  void fetch(const std::vector<ThumbnailFile>& files);
  bool begin(const std::shared_ptr<Batch>& batch);
  void request(const std::vector<ThumbnailFile>& files, const std::shared_ptr<Batch>& batch);
  void store(const ThumbnailFile& file, const std::string& image);
  void remember(const ThumbnailFile& file);
  bool isStopped();
  void run();

  const std::shared_ptr<platform::NSFileProviderThumbnailing> source_;
  const DesktopThumbnails desktop_;
  const Clock clock_;

  // One step at a time. Taken before mutex_ and held during a whole step; folders' pages are read
  // under it alone.
  std::mutex stepMutex_;

  // Guards the fields below; a leaf, never held during a request or while a folder gives its page.
  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<std::shared_ptr<Folder>> folders_;  // the one listed last is in front
  std::shared_ptr<Batch> running_;
  // By identifier and time of modification: until when not to ask again.
  std::unordered_map<std::string, std::chrono::steady_clock::time_point> misses_;
  bool stopped_ = false;

  std::thread thread_;
};

}  // namespace tulo
