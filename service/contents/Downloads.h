// Has the host hand over contents, and takes them.
//
// What comes is taken only if it is the version that was asked for and of its size; otherwise the
// folder is listed again and the download repeated, a few times.
//
// Threads: every member may be called on any thread; completions come on any thread.
// Lifetime: held by a shared pointer, because the provider may answer after stop(). Nothing that
// was handed in is touched from then on.
// Errors: what fails is the errno of the completions, and the reason in the node's row where only
// somebody's action can help.
#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/FileProvider.h"
#include "service/base/WorkQueue.h"
#include "service/contents/CacheEviction.h"
#include "service/contents/Deliveries.h"
#include "service/contents/Doorway.h"
#include "service/contents/DownloadQueue.h"
#include "service/contents/RoomWaiters.h"
#include "service/kernel/Notifier.h"
#include "service/listing/Sync.h"
#include "service/replica/ContentStore.h"
#include "service/replica/Replica.h"

namespace tulo {

class Downloads : public std::enable_shared_from_this<Downloads> {
 public:
  Downloads(Replica& replica, ExtensionPointer extension, Sync& sync, Notifier& notifier,
            ContentStore& store, CacheEviction& room);

  // Has the contents here, or says why not.
  void fetch(NodeId node, DownloadPriority priority, FetchCompletion completion);
  // Begins those that wait for room, if there is some now.
  void tryWaiting();
  // Whoever waits is told EINTR; nothing is fetched any more.
  void stop();

  bool isFullAhead() const { return queue_.isFullAhead(); }
  std::vector<Transfer> transfers() const { return queue_.transfers(); }
  std::uint64_t fetched() const { return fetched_; }
  std::uint64_t failed() const { return failed_; }

 private:
  void startNext();
  void beginSoon(const DownloadPointer& download);
  // The steps of a download. Each ends it, or has the next one follow.
  void begin(const DownloadPointer& download);
  void request(const DownloadPointer& download, const Node& row);
  void delivered(const DownloadPointer& download, const std::optional<platform::URL>& url,
                 const platform::ItemPointer& item, const std::optional<platform::NSError>& error);
  void retry(const DownloadPointer& download, const std::string& reason);
  void requestAgain(const DownloadPointer& download);
  void finish(const DownloadPointer& download, int error, const std::string& reason);

  void failedWith(const DownloadPointer& download, const std::exception& error);

  Replica& replica_;
  const ExtensionPointer extension_;
  Sync& sync_;
  Notifier& notifier_;
  ContentStore& store_;
  CacheEviction& room_;

  Deliveries deliveries_;
  DownloadQueue queue_;
  RoomWaiters waiters_;
  // Callbacks and beginnings are inside.
  Doorway door_;
  std::atomic<std::uint64_t> fetched_ = 0;
  std::atomic<std::uint64_t> failed_ = 0;

  // Begins downloads, so that those who ask for one (the kernel's requests, the deliveries to it)
  // never wait for the provider.
  WorkQueue starters_;
};

}  // namespace tulo
