#include "service/listing/Sync.h"

#include <malloc.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <future>
#include <utility>

#include "service/base/ServiceLog.h"
#include "service/errors/Errno.h"
#include "service/replica/Meta.h"

namespace tulo {

namespace {

constexpr unsigned kListingThreads = 3;
constexpr std::size_t kLargeListing = 10'000;
constexpr std::int64_t kLargeFolder = 256;

bool isSameFile(const platform::NSFileProviderItem& item, const Node& file,
                const std::string& folder) {
  const ItemRecord found = recordOf(item);
  return found.parentIdentifier == folder && found.filename == file.filename &&
         found.kind == file.kind && found.size == file.size &&
         found.contentVersion == file.contentVersion;
}

}  // namespace

// One listing of one folder on its way through the steps.
struct Sync::Attempt {
  explicit Attempt(Acknowledged& acknowledged) : watch(acknowledged) {}

  const Acknowledged::Watch watch;
  Node folder;
  ListingStamp stamp;
  Listing listing;
  std::string digest;
};

Sync::Sync(Replica& replica, ExtensionPointer extension, Notifier& notifier, Folders& folders,
           OpenFiles& openFiles, SourceWatch& source, Acknowledged& acknowledged)
    : replica_(replica),
      extension_(std::move(extension)),
      notifier_(notifier),
      folders_(folders),
      source_(source),
      acknowledged_(acknowledged),
      reconciler_(replica, openFiles),
      workers_(kListingThreads) {
  loadGeneration();
}

Sync::~Sync() {
  stop();
}

void Sync::loadGeneration() {
  std::int64_t generation = 1;
  std::string fingerprint;
  replica_.read([&](ReplicaReader& reader) {
    generation = meta::integer(reader, "generation");
    fingerprint = meta::text(reader, "fingerprint");
  });
  std::lock_guard lock(sourceMutex_);
  fingerprint_ = source_.fingerprint();
  const bool same = !fingerprint_.empty() && fingerprint_ == fingerprint;
  generation_ = static_cast<std::uint64_t>(same ? generation : generation + 1);
}

bool Sync::checkSource() {
  {
    std::lock_guard lock(sourceMutex_);
    std::string now = source_.fingerprint();
    if (now == fingerprint_) return false;
    fingerprint_ = std::move(now);
    ++generation_;
  }
  std::lock_guard lock(sweepMutex_);
  pace_.committed(SweepPace::Clock::now());
  sweepWanted_.notify_all();
  return true;
}

void Sync::glanceAtSource() {
  if (source_.publishedSince()) checkSource();
}

Freshness Sync::freshness(NodeId folder, std::uint64_t listed) {
  const std::uint64_t now = generation();
  const std::optional<std::uint64_t> verified = folders_.verified(folder);
  if (verified) return *verified >= now ? Freshness::current : Freshness::older;
  if (listed != now) return Freshness::unknown;
  folders_.setVerified(folder, now);
  return Freshness::current;
}

// True when a listing must be started for the folder; otherwise the completion waits for one that
// runs or will run.
bool Sync::enlist(NodeId folder, RefreshCompletion& completion) {
  std::lock_guard lock(runningMutex_);
  if (stopping_) return false;
  const auto [entry, isNew] = running_.try_emplace(folder);
  Running& running = entry->second;
  if (isNew) {
    running.generation = generation();
    running.waiters.push_back(std::exchange(completion, nullptr));
    return true;
  }
  const bool recent = running.generation >= generation();
  (recent ? running.waiters : running.next).push_back(std::exchange(completion, nullptr));
  return false;
}

void Sync::refresh(NodeId folder, RefreshCompletion completion) {
  if (enlist(folder, completion)) {
    if (startListing(folder)) return;
    const auto attempt = std::make_shared<Attempt>(acknowledged_);
    attempt->folder.id = folder;
    finish(attempt, EINTR);
  } else if (completion) {
    completion(EINTR);
  }
}

std::optional<std::string> Sync::largeFolder(NodeId folder) {
  return replica_.read([&](ReplicaReader& reader) -> std::optional<std::string> {
    if (!reader.hasAtLeast(folder, kLargeFolder)) return std::nullopt;
    const std::optional<Node> node = reader.node(folder);
    if (!node || node->identifier.empty()) return std::nullopt;
    return node->identifier;
  });
}

bool Sync::beginLookUp() {
  std::lock_guard lock(runningMutex_);
  if (stopping_) return false;
  ++lookUps_;
  ++statistics_.lookUps;
  return true;
}

void Sync::endLookUp() {
  std::lock_guard lock(runningMutex_);
  --lookUps_;
  runningChanged_.notify_all();
}

void Sync::verifyFile(const Node& file, RefreshCompletion completion) {
  const std::optional<std::string> folder = largeFolder(file.parent);
  if (!folder || file.identifier.empty()) return refresh(file.parent, std::move(completion));
  if (!beginLookUp()) return completion(EINTR);
  extension_->item(file.identifier, {},
                   [this, file, folder = *folder, completion = std::move(completion)](
                       const platform::ItemPointer& item, const std::optional<platform::NSError>&) {
                     if (item && isSameFile(*item, file, folder)) {
                       completion(0);
                     } else {
                       refresh(file.parent, completion);
                     }
                     endLookUp();
                   });
}

// The allocator keeps the pieces of a large listing for later ones, which hardly ever come.
bool Sync::startListing(NodeId folder) {
  return workers_.async([this, folder] {
    beginListing(folder);
    if (large_.exchange(false)) ::malloc_trim(0);
  });
}

void Sync::beginListing(NodeId folder) {
  const auto attempt = std::make_shared<Attempt>(acknowledged_);
  attempt->folder.id = folder;
  try {
    checkSource();
    {
      std::lock_guard lock(sourceMutex_);
      attempt->stamp.generation = generation();
      if (!source_.recentlyWritten()) attempt->stamp.fingerprint = fingerprint_;
    }
    {
      std::lock_guard lock(runningMutex_);
      running_[folder].generation = attempt->stamp.generation;
      ++statistics_.listings;
    }
    auto node = replica_.read([&](ReplicaReader& reader) { return reader.node(folder); });
    if (!node || node->kind != NodeKind::folder) return finish(attempt, ESTALE);
    attempt->folder = std::move(*node);
    // The host does not know the folder yet; what is in it came from here.
    if (attempt->folder.identifier.empty()) return finish(attempt, 0);
    enumerate(*extension_, attempt->folder.identifier,
              [this, attempt](Listing listing) { listed(attempt, std::move(listing)); });
  } catch (const std::exception& error) {
    serviceLog().error("cannot list folder %d: %{public}@", {folder.number(), error.what()});
    finish(attempt, EIO);
  }
}

void Sync::listed(const std::shared_ptr<Attempt>& attempt, Listing listing) try {
  if (listing.error) return finish(attempt, errnoFor(*listing.error));
  // An index that is not there shows as empty folders; that is no statement about their contents.
  if (!source_.present()) return finish(attempt, EHOSTDOWN);
  attempt->digest = listing.digest();
  if (listing.items.size() >= kLargeListing) large_ = true;
  if (attempt->folder.listed != 0 && attempt->digest == attempt->folder.digest) {
    {
      std::lock_guard lock(runningMutex_);
      ++statistics_.unchanged;
    }
    return finish(attempt, 0);
  }
  attempt->listing = std::move(listing);
  std::vector<std::string> missing;
  if (attempt->folder.listed != 0) {
    missing =
        sampleOfMissing(replica_, attempt->folder.id, attempt->listing, attempt->watch.newer());
  }
  verifyMissing(attempt, std::move(missing));
} catch (const std::exception& error) {
  serviceLog().error("cannot compare folder %d: %{public}@",
                     {attempt->folder.id.number(), error.what()});
  finish(attempt, EIO);
}

// A reading that failed half-way also shows as missing children. What the provider still knows in
// this very folder is not gone.
void Sync::verifyMissing(const std::shared_ptr<Attempt>& attempt,
                         std::vector<std::string> missing) {
  if (missing.empty()) return apply(attempt);
  const std::string identifier = missing.back();
  missing.pop_back();
  extension_->item(identifier, {},
                   [this, attempt, missing = std::move(missing)](
                       const platform::ItemPointer& item, const std::optional<platform::NSError>&) {
                     if (item && item->parentItemIdentifier() == attempt->folder.identifier) {
                       return finish(attempt, EAGAIN);
                     }
                     verifyMissing(attempt, missing);
                   });
}

void Sync::apply(const std::shared_ptr<Attempt>& attempt) try {
  auto [invalidations, outdated] = reconciler_.reconcile(
      attempt->folder.id, attempt->listing, attempt->digest, attempt->stamp, attempt->watch);
  for (const Invalidation& invalidation : invalidations) {
    if (invalidation.kind == Invalidation::Kind::entryDeleted) folders_.remove(invalidation.node);
  }
  const bool changed = !invalidations.empty();
  notifier_.queue(std::move(invalidations));
  if (changed && reconciled_) reconciled_(attempt->folder.id);
  if (outdated) {
    std::lock_guard lock(sweepMutex_);
    retry_.insert(attempt->folder.id);
  }
  finish(attempt, 0);
} catch (const std::exception& error) {
  serviceLog().error("cannot reconcile folder %d: %{public}@",
                     {attempt->folder.id.number(), error.what()});
  finish(attempt, EIO);
}

void Sync::finish(const std::shared_ptr<Attempt>& attempt, int error) {
  const NodeId folder = attempt->folder.id;
  if (error == 0 || attempt->folder.listed != 0) {
    folders_.setVerified(folder, attempt->stamp.generation);
  }
  if (error != 0 && error != ESTALE) {
    std::lock_guard lock(sweepMutex_);
    retry_.insert(folder);
  }
  std::vector<RefreshCompletion> waiters;
  bool again = false;
  {
    std::lock_guard lock(runningMutex_);
    const auto found = running_.find(folder);
    if (found == running_.end()) return;
    waiters.swap(found->second.waiters);
    again = !found->second.next.empty() && !stopping_;
    if (again) {
      found->second.waiters.swap(found->second.next);
    } else {
      for (RefreshCompletion& late : found->second.next)
        waiters.push_back(std::move(late));
      running_.erase(found);
    }
    statistics_.lastError = error;
    runningChanged_.notify_all();
  }
  for (const RefreshCompletion& waiter : waiters)
    waiter(error);
  if (again && !startListing(folder)) {
    finish(attempt, EINTR);
  }
}

void Sync::saveVerified() {
  const std::uint64_t now = generation();
  std::string fingerprint;
  {
    std::lock_guard lock(sourceMutex_);
    if (source_.recentlyWritten() || source_.fingerprint() != fingerprint_) return;
    fingerprint = fingerprint_;
  }
  const auto verified = folders_.allVerified();
  replica_.write(Durability::eventual, [&](ReplicaWriter& writer) {
    for (const auto& [folder, generation] : verified) {
      if (generation == now) writer.setListedGeneration(folder, now);
    }
    meta::set(writer, "generation", static_cast<std::int64_t>(now));
    meta::set(writer, "fingerprint", std::string_view(fingerprint));
  });
}

Sync::Statistics Sync::statistics() const {
  Statistics result;
  {
    std::lock_guard lock(runningMutex_);
    result = statistics_;
  }
  result.generation = generation();
  result.staleFolders = folders_.olderThan(result.generation).size();
  return result;
}

}  // namespace tulo
