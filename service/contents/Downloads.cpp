#include "service/contents/Downloads.h"

#include <fcntl.h>

#include <cerrno>
#include <utility>

#include "platform/linux/FileDescriptor.h"
#include "service/base/ServiceLog.h"
#include "service/errors/ContentError.h"
#include "service/errors/Errno.h"
#include "service/replica/JournalTree.h"

namespace tulo {

namespace {

constexpr unsigned kAttempts = 3;
// Beginning a fetch may have to make room first, and nobody says how soon the provider returns.
constexpr unsigned kStarters = 4;

std::optional<Node> rowOf(Replica& replica, const Download& download) {
  return replica.read([&](ReplicaReader& reader) { return reader.node(download.node); });
}

// The provider knows no word for it; 0 when more can be opened.
int shortageOfDescriptors() {
  const FileDescriptor any(::open("/", O_PATH | O_CLOEXEC));
  return !any && isShortOfDescriptors(errno) ? errno : 0;
}

void recordFailure(Replica& replica, const Download& download, int error,
                   const std::string& reason) try {
  if (reason.empty()) return;
  serviceLog().info("cannot fetch node %d (errno %d): %{public}@",
                    {download.node.number(), error, reason});
  replica.write(Durability::eventual,
                [&](ReplicaWriter& writer) { writer.setError(download.node, reason); });
} catch (const std::exception& failure) {
  serviceLog().error("cannot note an error: %{public}@", {failure.what()});
}

}  // namespace

Downloads::Downloads(Replica& replica, ExtensionPointer extension, Sync& sync, Notifier& notifier,
                     ContentStore& store, CacheEviction& room)
    : replica_(replica),
      extension_(std::move(extension)),
      sync_(sync),
      notifier_(notifier),
      store_(store),
      room_(room),
      deliveries_(replica, store),
      starters_(kStarters) {}

void Downloads::fetch(NodeId node, DownloadPriority priority, FetchCompletion completion) {
  if (!queue_.add(node, priority, completion)) return completion(EINTR);
  startNext();
}

void Downloads::startNext() {
  while (const DownloadPointer next = queue_.next())
    beginSoon(next);
}

void Downloads::tryWaiting() {
  for (const DownloadPointer& download : waiters_.takeAll())
    beginSoon(download);
}

void Downloads::beginSoon(const DownloadPointer& download) {
  starters_.async([this, download] {
    const Doorway::Visit visit(door_);
    if (visit) begin(download);
  });
}

void Downloads::begin(const DownloadPointer& download) try {
  const std::optional<Node> row = rowOf(replica_, *download);
  if (!row) return finish(download, ESTALE, {});
  if (row->state != ContentState::dataless || row->size == 0) return finish(download, 0, {});
  if (row->identifier.empty()) return finish(download, ESTALE, {});
  const Fit fit = room_.make(row->size);
  if (fit == Fit::later && waiters_.add(download, store_.room().reserved() > 0)) return;
  if (fit != Fit::now) return finish(download, ENOSPC, "no room for it in the cache");
  download->reserved = row->size;
  request(download, *row);
} catch (const std::exception& error) {
  failedWith(download, error);
}

void Downloads::request(const DownloadPointer& download, const Node& row) {
  download->folder = replica_.read(
      [&](ReplicaReader& reader) { return journal::folderAtHost(reader, download->node); });
  download->version = row.contentVersion;
  download->size = row.size;
  queue_.setSize(download->node, row.size);
  extension_->fetchContents(
      row.identifier, platform::NSFileProviderItemVersion{row.contentVersion, row.metadataVersion},
      {},
      [weak = weak_from_this(), download](const std::optional<platform::URL>& url,
                                          const platform::ItemPointer& item,
                                          const std::optional<platform::NSError>& error) {
        const auto self = weak.lock();
        if (!self) return;
        const Doorway::Visit visit(self->door_);
        if (visit) self->delivered(download, url, item, error);
      });
}

void Downloads::delivered(const DownloadPointer& download, const std::optional<platform::URL>& url,
                          const platform::ItemPointer& item,
                          const std::optional<platform::NSError>& error) try {
  if (error) {
    if (const int shortage = shortageOfDescriptors()) return finish(download, shortage, {});
    const bool transient = isTransient(*error);
    return finish(download, errnoFor(*error), transient ? std::string() : descriptionOf(*error));
  }
  if (!url) return retry(download, "the host delivered no file");
  download->path = url->path();
  // Contents of a version that was replaced while they came cannot be told from those of the next.
  if (item && item->itemVersion().contentVersion != download->version) {
    return retry(download, "the file keeps changing at the host");
  }
  if (!deliveries_.adopt(*download)) return retry(download, "the file keeps changing at the host");
  notifier_.queue({attributesChanged(download->node)});
  finish(download, 0, {});
} catch (const ContentError& failure) {
  const int number = errnoFor(failure);
  if (isShortOfDescriptors(number)) return finish(download, number, {});
  if (number != EIO) return finish(download, number, failure.what());
  retry(download, failure.what());
} catch (const std::exception& failure) {
  failedWith(download, failure);
}

void Downloads::retry(const DownloadPointer& download, const std::string& reason) {
  deliveries_.discard(*download);
  if (++download->attempts >= kAttempts) return finish(download, EIO, reason);
  serviceLog().info("fetching node %d again: %{public}@", {download->node.number(), reason});
  if (download->folder == kNoNode) return requestAgain(download);
  sync_.refresh(download->folder, [self = shared_from_this(), download](int) {
    const Doorway::Visit visit(self->door_);
    if (visit) self->requestAgain(download);
  });
}

void Downloads::requestAgain(const DownloadPointer& download) try {
  const std::optional<Node> row = rowOf(replica_, *download);
  if (!row) return finish(download, ESTALE, {});
  request(download, *row);
} catch (const std::exception& error) {
  failedWith(download, error);
}

void Downloads::failedWith(const DownloadPointer& download, const std::exception& error) {
  serviceLog().error("cannot fetch node %d: %{public}@", {download->node.number(), error.what()});
  const int number = errnoFor(error);
  finish(download, number, isShortOfDescriptors(number) ? "" : error.what());
}

void Downloads::finish(const DownloadPointer& download, int error, const std::string& reason) {
  deliveries_.discard(*download);
  store_.room().reserve(-std::exchange(download->reserved, 0));
  recordFailure(replica_, *download, error, reason);
  const std::vector<FetchCompletion> waiters = queue_.remove(*download);
  ++(error == 0 ? fetched_ : failed_);
  for (const FetchCompletion& waiter : waiters)
    waiter(error);
  startNext();
  tryWaiting();
}

void Downloads::stop() {
  door_.close();
  const std::vector<DownloadPointer> left = queue_.stop();
  starters_.stop();
  for (const DownloadPointer& download : left)
    finish(download, EINTR, {});
}

}  // namespace tulo
