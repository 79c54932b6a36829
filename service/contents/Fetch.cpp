#include "service/contents/Fetch.h"

#include <cerrno>
#include <ctime>

#include "service/base/ServiceLog.h"
#include "service/errors/Errno.h"
#include "service/replica/ContentRows.h"
#include "service/replica/NodeContents.h"

namespace tulo {

namespace {

constexpr std::size_t kParallel = 16;
constexpr std::size_t kParallelAhead = 4;
constexpr unsigned kAttempts = 3;

}  // namespace

Contents::Transfer Contents::transferOf(const Fetch& fetch) {
  return {fetch.node, fetch.size, fetch.startedAt, fetch.ahead, fetch.active};
}

void Contents::fetch(NodeId node, Priority priority, FetchCompletion completion) {
  bool refused = false;
  {
    std::lock_guard lock(mutex_);
    refused = stopping_;
    if (!refused) enlist(node, priority == Priority::ahead, completion);
  }
  if (refused) return completion(EINTR);
  startNext();
}

// The mutex is held.
void Contents::enlist(NodeId node, bool ahead, FetchCompletion& completion) {
  FetchPointer& fetch = fetches_[node];
  const bool isNew = !fetch;
  if (isNew) {
    fetch = std::make_shared<Fetch>();
    fetch->node = node;
    fetch->startedAt = secondsNow();
  }
  fetch->waiters.push_back(std::move(completion));
  if (isNew) {
    fetch->ahead = ahead;
    (ahead ? waitingAhead_ : waitingOpened_).push_back(fetch);
  } else if (!ahead && fetch->ahead && !fetch->active) {
    // Somebody waits for it now.
    std::erase(waitingAhead_, fetch);
    fetch->ahead = false;
    waitingOpened_.push_back(fetch);
  }
}

// The mutex is held.
Contents::FetchPointer Contents::nextFetch() {
  if (stopping_ || active_ >= kParallel) return nullptr;
  FetchPointer next;
  if (!waitingOpened_.empty()) {
    next = std::move(waitingOpened_.front());
    waitingOpened_.pop_front();
  } else if (!waitingAhead_.empty() && activeAhead_ < kParallelAhead) {
    next = std::move(waitingAhead_.front());
    waitingAhead_.pop_front();
    ++activeAhead_;
  } else {
    return nullptr;
  }
  next->active = true;
  ++active_;
  return next;
}

void Contents::startNext() {
  for (;;) {
    FetchPointer next;
    {
      std::lock_guard lock(mutex_);
      next = nextFetch();
    }
    if (!next) return;
    starters_.async([this, next] {
      if (!enterCallback()) return;
      begin(next);
      leaveCallback();
    });
  }
}

void Contents::begin(const FetchPointer& fetch) try {
  const auto node = replica_.read([&](ReplicaReader& reader) { return reader.node(fetch->node); });
  if (!node) return finish(fetch, ESTALE, {});
  if (node->state != ContentState::dataless || node->size == 0) return finish(fetch, 0, {});
  if (node->identifier.empty()) return finish(fetch, ESTALE, {});
  if (!makeRoom(node->size)) return finish(fetch, ENOSPC, "no room for it in the cache");
  store_.reserve(node->size);
  fetch->reserved = node->size;
  request(fetch);
} catch (const std::exception& error) {
  serviceLog().error("cannot fetch node %d: %{public}@", {fetch->node.number(), error.what()});
  finish(fetch, EIO, error.what());
}

void Contents::request(const FetchPointer& fetch) {
  const auto node = replica_.read([&](ReplicaReader& reader) { return reader.node(fetch->node); });
  if (!node) return finish(fetch, ESTALE, {});
  fetch->folder = node->parent;
  fetch->identifier = node->identifier;
  fetch->version = node->contentVersion;
  fetch->size = node->size;
  const platform::NSFileProviderItemVersion version{node->contentVersion, node->metadataVersion};
  extension_->fetchContents(
      fetch->identifier, version, {},
      [weak = weak_from_this(), fetch](const std::optional<platform::URL>& url,
                                       const platform::ItemPointer& item,
                                       const std::optional<platform::NSError>& error) {
        const auto self = weak.lock();
        if (self && self->enterCallback()) {
          self->fetched(fetch, url, item, error);
          self->leaveCallback();
        }
      });
}

bool Contents::enterCallback() {
  std::lock_guard lock(mutex_);
  if (!stopping_) ++insideCallback_;
  return !stopping_;
}

void Contents::leaveCallback() {
  std::lock_guard lock(mutex_);
  --insideCallback_;
  idle_.notify_all();
}

void Contents::fetched(const FetchPointer& fetch, const std::optional<platform::URL>& url,
                       const platform::ItemPointer& item,
                       const std::optional<platform::NSError>& error) try {
  if (error) {
    const bool transient = isTransient(*error);
    return finish(fetch, errnoFor(*error), transient ? std::string() : descriptionOf(*error));
  }
  if (!url) return retry(fetch, "the host delivered no file");
  fetch->path = url->path();
  // Contents of a version that was replaced while they came cannot be told from those of the next.
  if (item && item->itemVersion().contentVersion != fetch->version) {
    return retry(fetch, "the file keeps changing at the host");
  }
  adopt(fetch);
} catch (const ContentError& failure) {
  if (failure.number() == ENOSPC) return finish(fetch, ENOSPC, failure.what());
  retry(fetch, failure.what());
} catch (const std::exception& failure) {
  serviceLog().error("cannot keep node %d: %{public}@", {fetch->node.number(), failure.what()});
  finish(fetch, EIO, failure.what());
}

void Contents::adopt(const FetchPointer& fetch) {
  std::optional<IncomingContent> content;
  replica_.write(Durability::eventual, [&](ReplicaWriter& writer) {
    content.emplace(store_, contentRows::reserve(writer, fetch->node));
  });
  bool adopted = false;
  const std::int64_t blocks = store_.take(fetch->path, fetch->size, content->number());
  fetch->path.clear();
  replica_.write(Durability::eventual, [&](ReplicaWriter& writer) {
    const std::optional<Node> node = writer.node(fetch->node);
    adopted = node && node->contentVersion == fetch->version && node->size == fetch->size &&
              node->state == ContentState::dataless;
    if (adopted) nodeContents::adopt(writer, fetch->node, content->number(), blocks);
  });
  store_.addUsed(blocks * 512);
  content.reset();
  if (!adopted) return retry(fetch, "the file keeps changing at the host");
  notifier_.queue({attributesChanged(fetch->node)});
  finish(fetch, 0, {});
}

void Contents::discard(const FetchPointer& fetch) {
  if (!fetch->path.empty()) store_.discard(fetch->path);
  fetch->path.clear();
}

void Contents::retry(const FetchPointer& fetch, const std::string& reason) {
  discard(fetch);
  if (++fetch->attempts >= kAttempts) return finish(fetch, EIO, reason);
  serviceLog().info("fetching node %d again: %{public}@", {fetch->node.number(), reason});
  if (fetch->folder == kNoNode) return request(fetch);
  sync_.refresh(fetch->folder, [self = shared_from_this(), fetch](int) {
    try {
      self->request(fetch);
    } catch (const std::exception& error) {
      serviceLog().error("cannot fetch node %d: %{public}@", {fetch->node.number(), error.what()});
      self->finish(fetch, EIO, error.what());
    }
  });
}

void Contents::recordFailure(const FetchPointer& fetch, int error, const std::string& reason) try {
  if (reason.empty()) return;
  serviceLog().info("cannot fetch node %d (errno %d): %{public}@",
                    {fetch->node.number(), error, reason});
  replica_.write(Durability::eventual,
                 [&](ReplicaWriter& writer) { writer.setError(fetch->node, reason); });
} catch (const std::exception& failure) {
  serviceLog().error("cannot note an error: %{public}@", {failure.what()});
}

void Contents::finish(const FetchPointer& fetch, int error, const std::string& reason) {
  discard(fetch);
  store_.reserve(-std::exchange(fetch->reserved, 0));
  recordFailure(fetch, error, reason);
  std::vector<FetchCompletion> waiters;
  {
    std::lock_guard lock(mutex_);
    waiters.swap(fetch->waiters);
    if (std::exchange(fetch->active, false)) {
      --active_;
      if (fetch->ahead) --activeAhead_;
    }
    const auto found = fetches_.find(fetch->node);
    if (found != fetches_.end() && found->second == fetch) fetches_.erase(found);
    ++(error == 0 ? statistics_.fetched : statistics_.failed);
  }
  for (const FetchCompletion& waiter : waiters)
    waiter(error);
  startNext();
}

}  // namespace tulo
