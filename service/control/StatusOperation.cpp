#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "service/control/Operations.h"
#include "service/control/Shown.h"
#include "service/edits/Pending.h"
#include "service/replica/JournalTree.h"

namespace tulo::control {

namespace {

constexpr std::size_t kShownErrors = 100;
constexpr std::size_t kShownTransfers = 100;
constexpr std::size_t kShownChanges = 100;

ListingStatus listingStatus(const ControlParts& parts) {
  const Sync::Statistics sync = parts.sync.statistics();
  return {.indexPresent = parts.source.present(),
          .lastError = sync.lastError == 0 ? "" : std::strerror(sync.lastError),
          .generation = sync.generation,
          .anchor = sync.anchor,
          .listings = sync.listings,
          .unchanged = sync.unchanged,
          .staleFolders = sync.staleFolders};
}

CacheStatus cacheStatus(const ContentStore& store) {
  return {.used = store.room().used(),
          .limit = store.room().limits().size,
          .incoming = store.room().reserved()};
}

DownloadStatus downloadStatus(const ControlParts& parts) {
  const Contents::Statistics contents = parts.contents.statistics();
  DownloadStatus result{.fetched = contents.fetched,
                        .failed = contents.failed,
                        .denied = contents.denied,
                        .evicted = contents.evicted,
                        .transfers = {}};
  for (const Contents::Transfer& transfer : contents.transfers) {
    if (result.transfers.size() >= kShownTransfers) break;
    result.transfers.push_back({.path = pathOf(parts.replica, transfer.node),
                                .size = transfer.size,
                                .since = transfer.startedAt,
                                .ahead = transfer.ahead,
                                .active = transfer.active});
  }
  return result;
}

Failures failedDownloads(const ControlParts& parts) {
  Failures result;
  const auto failed =
      parts.replica.read([](ReplicaReader& reader) { return reader.failedNodes(kShownErrors); });
  for (const Node& node : failed)
    result.push_back({pathOf(parts.replica, node.id), node.error});
  return result;
}

// Some of what stays on this machine.
std::vector<std::string> localPaths(ReplicaReader& reader) {
  std::vector<std::string> result;
  for (NodeId node : journal::localNodes(reader, kShownChanges)) {
    std::string path = pending::pathOf(reader, node);
    if (!path.empty()) result.push_back(std::move(path));
  }
  return result;
}

std::vector<PendingChange> activeUploads(const ControlParts& parts, ReplicaReader& reader,
                                         const std::vector<NodeId>& active) {
  std::vector<PendingChange> result;
  for (NodeId node : active) {
    if (auto change = shownInFull(parts.openFiles, reader, node)) {
      result.push_back(std::move(*change));
    }
  }
  return result;
}

std::vector<PendingChange> someChanges(const ControlParts& parts, ReplicaReader& reader,
                                       const std::vector<NodeId>& active) {
  std::vector<PendingChange> result;
  for (const Change& change : journal::all(reader, kShownChanges)) {
    result.push_back(shown(parts.openFiles, pending::describe(reader, change)));
    const bool sending = std::find(active.begin(), active.end(), change.node()) != active.end();
    if (sending) result.back().state = ChangeState::sending;
  }
  return result;
}

UploadStatus uploadStatus(const ControlParts& parts) {
  const Uploader::Statistics up = parts.uploader.statistics();
  UploadStatus result;
  result.host = hostState(up);
  result.counts = changeCounts(up.counts);
  result.uploading = up.active;
  result.sent = up.sent;
  result.failed = up.failures;
  result.conflicts = up.conflicts;
  result.lastError = up.lastError;
  parts.replica.read([&](ReplicaReader& reader) {
    result.localItems = journal::countLocal(reader);
    result.local = localPaths(reader);
    result.uploads = activeUploads(parts, reader, up.activeNodes);
    result.changes = someChanges(parts, reader, up.activeNodes);
  });
  return result;
}

}  // namespace

StatusReply status(const ControlParts& parts) {
  StatusReply reply;
  reply.outcome = Outcome::good();
  reply.domain = parts.domain;
  reply.mountPoint = parts.mountPoint;
  reply.process = ::getpid();
  reply.readWrite = parts.readWrite;
  reply.openFiles = parts.openFiles.count();
  reply.kernelFolders = parts.folders.references();
  reply.listing = listingStatus(parts);
  reply.cache = cacheStatus(parts.store);
  reply.downloads = downloadStatus(parts);
  reply.errors = failedDownloads(parts);
  reply.uploads = uploadStatus(parts);
  reply.kept = parts.kept;
  return reply;
}

}  // namespace tulo::control
