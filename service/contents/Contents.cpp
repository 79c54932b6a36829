#include "service/contents/Contents.h"

#include <cerrno>
#include <utility>

#include "service/base/ServiceLog.h"
#include "service/errors/Errno.h"

namespace tulo {

namespace {

constexpr unsigned kOpenAttempts = 8;
// Beginning a fetch may have to make room first, and nobody says how soon the provider returns.
constexpr unsigned kStarters = 4;

}  // namespace

OpenFile::OpenFile(Replica& replica, OpenFiles& openFiles, const ContentStore& store, NodeId node,
                   ContentId content, std::optional<std::int64_t> size)
    : replica_(replica),
      openFiles_(openFiles),
      store_(store),
      node_(node),
      content_(content),
      size_(size) {
  openFiles_.opened(node_, content_);
  changes_ = openFiles_.contentsChanges(node_);
}

OpenFile::~OpenFile() {
  if (writes_) openFiles_.closedForWriting(node_);
  openFiles_.closed(node_, content_);
}

void OpenFile::setWrites() {
  if (!writes_) openFiles_.openedForWriting(node_);
  writes_ = true;
}

ContentId OpenFile::content() const {
  std::lock_guard lock(mutex_);
  return content_;
}

void OpenFile::follow() {
  const std::uint64_t changes = openFiles_.contentsChanges(node_);
  {
    std::lock_guard lock(mutex_);
    if (changes == changes_) return;
  }
  const SharedLock gate(openFiles_.gate());
  const auto row = replica_.read([&](ReplicaReader& reader) { return reader.openLookup(node_); });
  std::lock_guard lock(mutex_);
  changes_ = changes;
  // A number that was left behind has no row any more, and keeps what it has.
  if (!row) return;
  size_.reset();
  if (row->content == content_) return;
  openFiles_.exchanged(content_, row->content);
  content_ = row->content;
  descriptor_.reset();
}

bool OpenFile::endsBefore(std::int64_t offset) {
  follow();
  std::lock_guard lock(mutex_);
  return content_ == kNoContent || (size_ && offset >= *size_);
}

std::shared_ptr<const FileDescriptor> OpenFile::descriptor() {
  follow();
  std::lock_guard lock(mutex_);
  if (!descriptor_) {
    descriptor_ = std::make_shared<const FileDescriptor>(size_ ? store_.open(content_, *size_)
                                                               : store_.openAsIs(content_));
  }
  return descriptor_;
}

Contents::Contents(Replica& replica, ExtensionPointer extension, Sync& sync, Notifier& notifier,
                   OpenFiles& openFiles, ContentStore& store, DownloadPolicy& policy)
    : replica_(replica),
      extension_(std::move(extension)),
      sync_(sync),
      notifier_(notifier),
      openFiles_(openFiles),
      store_(store),
      policy_(policy),
      starters_(kStarters) {}

std::optional<OpenAnswer> Contents::openNow(NodeId id, bool verified) {
  sync_.glanceAtSource();
  const SharedLock gate(openFiles_.gate());
  const auto node = replica_.read([&](ReplicaReader& reader) { return reader.openLookup(id); });
  if (!node) return OpenAnswer{ESTALE, nullptr};
  if (node->kind == NodeKind::folder) return OpenAnswer{EISDIR, nullptr};
  // Nothing that the host reports changes what was changed here.
  const bool settled = verified || node->parent == kNoNode || node->state == ContentState::dirty;
  if (!settled && sync_.freshness(node->parent, 0) != Freshness::current) return std::nullopt;
  if (node->state == ContentState::dataless && node->size > 0) return std::nullopt;
  {
    std::lock_guard lock(mutex_);
    used_[id] = secondsNow();
  }
  return OpenAnswer{0, handle(id, node->content, node->state, node->size)};
}

std::unique_ptr<OpenFile> Contents::openAsIs(NodeId id) {
  const auto node = replica_.read([&](ReplicaReader& reader) { return reader.node(id); });
  if (!node || node->kind != NodeKind::file) return nullptr;
  return handle(id, node->content, node->state, node->size);
}

std::unique_ptr<OpenFile> Contents::openNew(const Entry& entry) {
  return handle(entry.id, entry.content, entry.state, entry.size);
}

// The row of what was changed here follows its bytes.
std::unique_ptr<OpenFile> Contents::handle(NodeId node, ContentId content, ContentState state,
                                           std::int64_t size) {
  std::optional<std::int64_t> expected;
  if (state != ContentState::dirty) expected = size;
  return std::make_unique<OpenFile>(replica_, openFiles_, store_, node, content, expected);
}

Contents::Ticket Contents::beginOpen(NodeId node, OpenCompletion completion) {
  std::lock_guard lock(mutex_);
  const Ticket ticket = nextTicket_++;
  waiters_[ticket] = {std::move(completion), node, false, stopping_};
  return ticket;
}

void Contents::answer(Ticket ticket, OpenAnswer answer) {
  OpenCompletion completion;
  {
    std::lock_guard lock(mutex_);
    const auto found = waiters_.find(ticket);
    if (found == waiters_.end()) return;
    completion = std::move(found->second.completion);
    waiters_.erase(found);
  }
  completion(std::move(answer));
}

void Contents::cancel(Ticket ticket) {
  {
    std::lock_guard lock(mutex_);
    const auto found = waiters_.find(ticket);
    if (found == waiters_.end()) return;
    found->second.cancelled = true;
    if (!found->second.armed) return;
  }
  answer(ticket, {EINTR, nullptr});
}

void Contents::proceed(Ticket ticket, NodeId node, int process) try {
  bool cancelled = false;
  {
    std::lock_guard lock(mutex_);
    const auto found = waiters_.find(ticket);
    if (found == waiters_.end()) return;
    found->second.armed = true;
    cancelled = found->second.cancelled;
  }
  if (cancelled) return answer(ticket, {EINTR, nullptr});
  const auto row = replica_.read([&](ReplicaReader& reader) { return reader.node(node); });
  if (!row) return answer(ticket, {ESTALE, nullptr});
  if (row->parent == kNoNode || sync_.freshness(row->parent, 0) == Freshness::current) {
    return openFresh(ticket, node, process, true, 0);
  }
  sync_.verifyFile(*row, [self = shared_from_this(), ticket, node, process](int error) {
    // The kernel must know the size of a new version before the file is open.
    self->notifier_.afterDelivery([self, ticket, node, process, verified = error == 0] {
      self->openFresh(ticket, node, process, verified, 0);
    });
  });
} catch (const std::exception& error) {
  serviceLog().error("cannot open node %d: %{public}@", {node.number(), error.what()});
  answer(ticket, {EIO, nullptr});
}

void Contents::openFresh(Ticket ticket, NodeId node, int process, bool verified,
                         unsigned attempt) try {
  if (std::optional<OpenAnswer> now = openNow(node, verified)) {
    return answer(ticket, std::move(*now));
  }
  if (!policy_.mayDownload(process)) {
    {
      std::lock_guard lock(mutex_);
      ++statistics_.denied;
    }
    return answer(ticket, {EACCES, nullptr});
  }
  fetch(node, Priority::opened,
        [self = shared_from_this(), ticket, node, process, attempt](int error) {
          self->openAfterFetch(ticket, node, process, error, attempt + 1);
        });
} catch (const std::exception& error) {
  serviceLog().error("cannot open node %d: %{public}@", {node.number(), error.what()});
  answer(ticket, {EIO, nullptr});
}

void Contents::openAfterFetch(Ticket ticket, NodeId node, int process, int error,
                              unsigned attempt) try {
  if (error != 0) return answer(ticket, {error, nullptr});
  // What was just fetched is as fresh as an open has to be.
  if (std::optional<OpenAnswer> now = openNow(node, true)) return answer(ticket, std::move(*now));
  // Evicted for the next one in this very moment, or replaced at the host.
  if (attempt >= kOpenAttempts) return answer(ticket, {ESTALE, nullptr});
  openFresh(ticket, node, process, true, attempt);
} catch (const std::exception& failure) {
  serviceLog().error("cannot open node %d: %{public}@", {node.number(), failure.what()});
  answer(ticket, {EIO, nullptr});
}

void Contents::stop() {
  std::unordered_map<Ticket, Waiter> waiters;
  std::unordered_map<NodeId, FetchPointer> fetches;
  {
    std::unique_lock lock(mutex_);
    stopping_ = true;
    waiters.swap(waiters_);
    fetches.swap(fetches_);
    waitingOpened_.clear();
    waitingAhead_.clear();
    idle_.wait(lock, [this] { return insideCallback_ == 0; });
  }
  starters_.stop();
  for (auto& [ticket, waiter] : waiters)
    waiter.completion({EINTR, nullptr});
  for (auto& [node, fetch] : fetches)
    finish(fetch, EINTR, {});
}

Contents::Statistics Contents::statistics() const {
  std::lock_guard lock(mutex_);
  Statistics result = statistics_;
  for (const auto& [node, fetch] : fetches_)
    result.transfers.push_back(transferOf(*fetch));
  return result;
}

}  // namespace tulo
