// Files' contents, for the rest of the service: open, fetch, evict.
//
// A dataless file is fetched once however many want it, on the provider's threads; those who wait
// are called when it is here, and hold up nobody else. What each part does stands in its header.
//
// Threads: every member may be called on any thread; completions come on any thread.
// Lifetime: stop() before anything that was handed in goes.
#pragma once

#include <memory>
#include <vector>

#include "service/contents/CacheEviction.h"
#include "service/contents/Downloads.h"
#include "service/contents/DurableContents.h"
#include "service/contents/FileOpener.h"
#include "service/contents/KeptFiles.h"
#include "service/contents/LeftOvers.h"
#include "service/contents/Openers.h"
#include "service/contents/RecentUse.h"
#include "service/errors/ContentError.h"

namespace tulo {

class Contents {
 public:
  using Ticket = Openers::Ticket;
  using Priority = DownloadPriority;

  Contents(Replica& replica, ExtensionPointer extension, Sync& sync, Notifier& notifier,
           OpenFiles& openFiles, ContentStore& store, DownloadPolicy& policy);
  Contents(const Contents&) = delete;
  Contents& operator=(const Contents&) = delete;

  // Brings the accounts up to date and drops what a crash left half done.
  void start() {
    leftOvers_.start();
    durable_.start();
  }
  // Whoever waits is told EINTR; nothing is fetched any more.
  void stop();

  // Opens the file, or says what has to be waited for.
  OpenAttempt openNow(NodeId node) { return opener_.attempt(node, Verification::none); }
  // Opens a file whose contents are of no interest. Null when it is gone.
  std::unique_ptr<OpenFile> openAsIs(NodeId node) { return opener_.openAsIs(node); }
  // A file that was made just now.
  std::unique_ptr<OpenFile> openNew(const Entry& entry) { return opener_.openNew(entry); }

  // Opening with waiting takes two steps, so that an interrupt can be armed between them: the
  // completion is not called before proceed(). `missing`: what openNow() said.
  Ticket beginOpen(OpenCompletion completion) { return openers_->begin(std::move(completion)); }
  void proceed(Ticket ticket, NodeId node, int process, OpenStep missing) {
    openers_->proceed(ticket, node, process, missing);
  }
  // The opener gave up: EINTR.
  void cancel(Ticket ticket) { openers_->cancel(ticket); }

  // Has the contents here, or says why not.
  void fetch(NodeId node, Priority priority, FetchCompletion completion) {
    downloads_->fetch(node, priority, std::move(completion));
  }

  // The contents of the open file could not be read: if they are missing or cut short, the next
  // open fetches them again.
  void cannotRead(const OpenFile& file, const ContentError& error);

  // 0, or the errno that says why the contents stay: EBUSY while open or kept.
  int evict(NodeId node) { return room_.evict(node); }

  // Single steps of the background work; each returns false when there was nothing to do.
  bool evictStep() {
    downloads_->tryWaiting();
    return room_.step();
  }
  bool keepStep() { return kept_.step(); }
  bool purgeStep() { return leftOvers_.step(); }
  bool durableStep() { return durable_.step(); }
  bool saveUseStep() { return use_.save(); }

  // Removes those of the contents that no node has and that are not on their way to one.
  void removeUnused(const std::vector<ContentId>& contents) { leftOvers_.remove(contents); }

  using Transfer = tulo::Transfer;
  struct Statistics {
    std::vector<Transfer> transfers;
    std::uint64_t fetched = 0;
    std::uint64_t failed = 0;
    std::uint64_t denied = 0;
    std::uint64_t evicted = 0;
  };
  Statistics statistics() const;

 private:
  Replica& replica_;
  OpenFiles& openFiles_;
  Notifier& notifier_;

  RecentUse use_;
  LeftOvers leftOvers_;
  CacheEviction room_;
  DurableContents durable_;
  FileOpener opener_;
  const std::shared_ptr<Downloads> downloads_;
  const std::shared_ptr<Openers> openers_;
  KeptFiles kept_;
};

}  // namespace tulo
