// Files' contents: open, fetch, evict.
//
// A dataless file is fetched once however many want it, on the provider's threads; those who wait
// are called when it is here, and hold up nobody else. An opener who gives up leaves the fetch
// running.
//
// Threads: every member may be called on any thread; completions come on any thread.
// Lifetime: held by a shared pointer, because the provider may answer a fetch after stop().
#pragma once

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "service/base/WorkQueue.h"
#include "service/contents/DownloadPolicy.h"
#include "service/kernel/Notifier.h"
#include "service/kernel/OpenFiles.h"
#include "service/listing/Sync.h"
#include "service/replica/ContentStore.h"
#include "service/replica/Replica.h"

namespace tulo {

// One open of one file. It keeps its version, whatever happens to the name.
class OpenFile {
 public:
  // `size`: what the file of contents must have; nothing where it may change.
  OpenFile(Replica& replica, OpenFiles& openFiles, const ContentStore& store, NodeId node,
           ContentId content, std::optional<std::int64_t> size);
  ~OpenFile();
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;

  NodeId node() const { return node_; }
  ContentId content() const;
  // The handle may write; known to others from now on.
  void setWrites();
  bool writes() const { return writes_; }
  // Whether there is nothing from that offset on; may be false at the end of what was changed here.
  bool endsBefore(std::int64_t offset);
  // The file of contents, opened at the first read: a file whose pages the kernel still has is
  // never opened at all. Throws ContentError.
  std::shared_ptr<const FileDescriptor> descriptor();

 private:
  // Goes on with what the node has now, if that was changed here since.
  void follow();

  Replica& replica_;
  OpenFiles& openFiles_;
  const ContentStore& store_;
  const NodeId node_;
  bool writes_ = false;
  // Guards all below; a leaf.
  mutable std::mutex mutex_;
  ContentId content_;
  std::optional<std::int64_t> size_;
  std::uint64_t changes_ = 0;
  std::shared_ptr<const FileDescriptor> descriptor_;
};

struct OpenAnswer {
  int error = 0;
  std::unique_ptr<OpenFile> file;
};

class Contents : public std::enable_shared_from_this<Contents> {
 public:
  using Ticket = std::uint64_t;
  using OpenCompletion = std::function<void(OpenAnswer)>;
  using FetchCompletion = std::function<void(int error)>;
  enum class Priority { opened, ahead };

  Contents(Replica& replica, ExtensionPointer extension, Sync& sync, Notifier& notifier,
           OpenFiles& openFiles, ContentStore& store, DownloadPolicy& policy);

  // Brings the accounts up to date and drops what a crash left half done.
  void start();
  // Whoever waits is told EINTR; nothing is fetched any more.
  void stop();

  // The answer, if it needs no waiting: the file is here, or cannot be opened at all. `verified`:
  // its folder was listed since the open began, which is as fresh as an open has to be.
  std::optional<OpenAnswer> openNow(NodeId node, bool verified = false);

  // Opens a file whose contents are of no interest. Null when it is gone.
  std::unique_ptr<OpenFile> openAsIs(NodeId node);
  // A file that was made just now.
  std::unique_ptr<OpenFile> openNew(const Entry& entry);

  // Opening with waiting takes two steps, so that an interrupt can be armed between them: the
  // completion is not called before proceed().
  Ticket beginOpen(NodeId node, OpenCompletion completion);
  void proceed(Ticket ticket, NodeId node, int process);
  // The opener gave up: EINTR.
  void cancel(Ticket ticket);

  // Has the contents here, or says why not.
  void fetch(NodeId node, Priority priority, FetchCompletion completion);

  // The contents of the open file could not be read: if they are missing or cut short, the next
  // open fetches them again.
  void cannotRead(const OpenFile& file, const ContentError& error);

  // 0, or the errno that says why the contents stay: EBUSY while open or kept.
  int evict(NodeId node);

  // Single steps of the background work; each returns false when there was nothing to do.
  bool evictStep();
  bool keepStep();
  bool purgeStep();
  bool durableStep();
  bool saveUseStep();

  // Removes those of the contents that no node has and that are not on their way to one.
  void removeUnused(const std::vector<ContentId>& contents);

  struct Transfer {
    NodeId node = kNoNode;
    std::int64_t size = 0;
    WallSeconds startedAt{};
    bool ahead = false;
    bool active = false;
  };
  struct Statistics {
    std::vector<Transfer> transfers;
    std::uint64_t fetched = 0;
    std::uint64_t failed = 0;
    std::uint64_t denied = 0;
    std::uint64_t evicted = 0;
  };
  Statistics statistics() const;

 private:
  std::unique_ptr<OpenFile> handle(NodeId node, ContentId content, ContentState state,
                                   std::int64_t size);
  struct Fetch;
  struct Waiter {
    OpenCompletion completion;
    NodeId node = kNoNode;
    bool armed = false;
    bool cancelled = false;
  };
  using FetchPointer = std::shared_ptr<Fetch>;

  static Transfer transferOf(const Fetch& fetch);
  void answer(Ticket ticket, OpenAnswer answer);
  void openFresh(Ticket ticket, NodeId node, int process, bool verified, unsigned attempt);
  void openAfterFetch(Ticket ticket, NodeId node, int process, int error, unsigned attempt);

  void enlist(NodeId node, bool ahead, FetchCompletion& completion);
  FetchPointer nextFetch();
  void startNext();
  void begin(const FetchPointer& fetch);
  void request(const FetchPointer& fetch);
  bool enterCallback();
  void leaveCallback();
  void fetched(const FetchPointer& fetch, const std::optional<platform::URL>& url,
               const platform::ItemPointer& item, const std::optional<platform::NSError>& error);
  void adopt(const FetchPointer& fetch);
  void retry(const FetchPointer& fetch, const std::string& reason);
  void discard(const FetchPointer& fetch);
  void recordFailure(const FetchPointer& fetch, int error, const std::string& reason);
  void finish(const FetchPointer& fetch, int error, const std::string& reason);

  bool makeRoom(std::int64_t bytes);
  bool evictSome(std::int64_t bytes);
  bool purgeContents();

  Replica& replica_;
  ExtensionPointer extension_;
  Sync& sync_;
  Notifier& notifier_;
  OpenFiles& openFiles_;
  ContentStore& store_;
  DownloadPolicy& policy_;

  // One at a time makes room, so that two do not evict for the same bytes. Taken first of all.
  std::mutex roomMutex_;
  std::atomic<NodeId> keepCursor_ = kNoNode;

  // Guards everything below; a leaf but for OpenFiles' own, never held while calling out.
  mutable std::mutex mutex_;
  std::condition_variable idle_;
  bool stopping_ = false;
  Ticket nextTicket_ = 1;
  std::unordered_map<Ticket, Waiter> waiters_;
  std::unordered_map<NodeId, FetchPointer> fetches_;
  std::deque<FetchPointer> waitingOpened_;
  std::deque<FetchPointer> waitingAhead_;
  std::size_t active_ = 0;
  std::size_t activeAhead_ = 0;
  std::size_t insideCallback_ = 0;
  std::unordered_map<NodeId, WallSeconds> used_;
  Statistics statistics_;

  // Begins fetches, so that those who ask for one (the kernel's requests, the deliveries to it)
  // never wait for the provider.
  WorkQueue starters_;
};

}  // namespace tulo
