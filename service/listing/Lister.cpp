#include "service/listing/Lister.h"

#include <malloc.h>

#include <cerrno>
#include <optional>
#include <utility>

#include "service/base/ServiceLog.h"
#include "service/errors/Errno.h"
#include "service/kernel/Acknowledged.h"
#include "service/listing/MissingSample.h"

namespace tulo {

namespace {

constexpr unsigned kListingThreads = 3;
constexpr std::size_t kLargeListing = 10'000;

}  // namespace

// One listing of one folder on its way through the steps.
struct Lister::Attempt {
  Attempt(Acknowledged& acknowledged, NodeId id) : watch(acknowledged) { folder.id = id; }

  const Acknowledged::Watch watch;
  Node folder;
  ListingStamp stamp;
  Listing listing;
  std::string digest;
  // What the source had before the provider was asked again.
  std::optional<std::int64_t> before;
  unsigned answers = 0;
};

Lister::Lister(ListerParts parts)
    : parts_(std::move(parts)),
      reconciler_(parts_.replica, parts_.openFiles, parts_.folders, parts_.store),
      workers_(kListingThreads) {}

void Lister::refresh(NodeId folder, RefreshCompletion completion) {
  switch (queue_.join(folder, parts_.generations.current(), completion)) {
    case ListingQueue::Place::refused:
      return completion(EINTR);
    case ListingQueue::Place::waiting:
      return;
    case ListingQueue::Place::first:
      if (!start(folder)) {
        finish(std::make_shared<Attempt>(parts_.acknowledged, folder), EINTR);
      }
  }
}

// The allocator keeps the pieces of a large listing for later ones, which hardly ever come.
bool Lister::start(NodeId folder) {
  return workers_.async([this, folder] {
    begin(std::make_shared<Attempt>(parts_.acknowledged, folder));
    if (large_.exchange(false)) ::malloc_trim(0);
  });
}

void Lister::begin(const AttemptPointer& attempt) try {
  const NodeId folder = attempt->folder.id;
  parts_.generations.check();
  attempt->stamp = parts_.generations.stamp();
  queue_.began(folder, attempt->stamp.generation);
  count(&Statistics::listings);
  auto node = parts_.replica.read([&](ReplicaReader& reader) { return reader.node(folder); });
  if (!node || node->kind != NodeKind::folder) return finish(attempt, ESTALE);
  attempt->folder = std::move(*node);
  // The host does not know the folder yet; what is in it came from here.
  if (attempt->folder.identifier.empty()) return finish(attempt, 0);
  ask(attempt);
} catch (const std::exception& error) {
  fail(attempt, "cannot list folder %d: %{public}@", error);
}

void Lister::ask(const AttemptPointer& attempt) {
  enumerate(*parts_.extension, attempt->folder.identifier,
            [this, attempt](Listing listing) { listed(attempt, std::move(listing)); });
}

void Lister::listed(const AttemptPointer& attempt, Listing listing) try {
  if (listing.error) return finish(attempt, errnoFor(*listing.error));
  // An index that is not there shows as empty folders; that is no statement about their contents.
  if (!parts_.source.present()) return finish(attempt, EHOSTDOWN);
  attempt->digest = listing.digest();
  if (listing.items.size() >= kLargeListing) large_ = true;
  if (attempt->folder.listed != 0 && attempt->digest == attempt->folder.digest) {
    count(&Statistics::unchanged);
    return finish(attempt, 0);
  }
  if (listing.items.empty() && isGone(attempt->folder)) return finish(attempt, ESTALE);
  const int doubt = parts_.belief.errorOfListing(attempt->folder.identifier, listing.items.size(),
                                                 attempt->before);
  if (doubt != 0) return doubted(attempt, doubt);
  attempt->listing = std::move(listing);
  std::vector<std::string> missing;
  if (attempt->folder.listed != 0) {
    missing = sampleOfMissing(parts_.replica, attempt->folder.id, attempt->listing,
                              attempt->watch.newer());
  }
  verifyMissing(attempt, std::move(missing));
} catch (const std::exception& error) {
  fail(attempt, "cannot compare folder %d: %{public}@", error);
}

// Its own listing says nothing of what was in it: it may have been moved, or have another
// identifier now, which the listing of the folder above shows.
bool Lister::isGone(const Node& folder) {
  if (folder.id == kRootNode || !parts_.belief.isAbsent(folder.identifier)) return false;
  if (folder.parent != kNoNode) parts_.plan.tryAgain(folder.parent);
  return true;
}

void Lister::doubted(const AttemptPointer& attempt, int error) {
  if (error != EAGAIN) return finish(attempt, error);
  if (++attempt->answers == Belief::kMostAnswers) return finish(attempt, EIO);
  attempt->before = parts_.belief.children(attempt->folder.identifier);
  ask(attempt);
}

// A reading that failed half-way also shows as missing children. What the provider still knows in
// this very folder is not gone.
void Lister::verifyMissing(const AttemptPointer& attempt, std::vector<std::string> missing) {
  if (missing.empty()) return apply(attempt);
  const std::string identifier = missing.back();
  missing.pop_back();
  parts_.extension->item(
      identifier, {},
      [this, attempt, missing = std::move(missing)](const platform::ItemPointer& item,
                                                    const std::optional<platform::NSError>&) {
        if (item && item->parentItemIdentifier() == attempt->folder.identifier) {
          return finish(attempt, EAGAIN);
        }
        verifyMissing(attempt, missing);
      });
}

void Lister::apply(const AttemptPointer& attempt) try {
  auto [invalidations, outdated, relist] = reconciler_.reconcile(
      {attempt->folder.id, attempt->listing, attempt->digest, attempt->stamp, attempt->watch});
  for (const Invalidation& invalidation : invalidations) {
    if (invalidation.kind == Invalidation::Kind::entryDeleted) {
      parts_.folders.remove(invalidation.node);
    }
  }
  const bool changed = !invalidations.empty();
  parts_.notifier.queue(std::move(invalidations));
  if (changed && reconciled_) reconciled_(attempt->folder.id);
  if (outdated) parts_.plan.tryAgain(attempt->folder.id);
  for (const NodeId folder : relist)
    parts_.plan.tryAgain(folder);
  finish(attempt, 0);
} catch (const std::exception& error) {
  fail(attempt, "cannot reconcile folder %d: %{public}@", error);
}

void Lister::fail(const AttemptPointer& attempt, const char* format, const std::exception& error) {
  serviceLog().error(format, {attempt->folder.id.number(), error.what()});
  finish(attempt, errnoFor(error));
}

// Once the queue has no listing any more, stop() may return, and nothing of this object may be
// touched; so that comes last.
void Lister::finish(const AttemptPointer& attempt, int error) {
  const NodeId folder = attempt->folder.id;
  if (error == 0 || attempt->folder.listed != 0) {
    parts_.folders.setVerified(folder, attempt->stamp.generation);
  }
  if (error == 0 && attempt->folder.kept) parts_.folders.watch(folder);
  if (error != 0 && error != ESTALE) parts_.plan.tryAgain(folder);
  {
    const MutexLock lock(mutex_);
    statistics_.lastError = error;
  }
  const auto [waiters, again] = queue_.finished(folder);
  for (const RefreshCompletion& waiter : waiters)
    waiter(error);
  if (again && !start(folder)) finish(attempt, EINTR);
}

void Lister::stop() {
  workers_.stop();
  // Listings that the provider has not answered hold references to this object.
  queue_.awaitNone();
}

void Lister::count(std::uint64_t Statistics::*counter) {
  const MutexLock lock(mutex_);
  ++(statistics_.*counter);
}

Lister::Statistics Lister::statistics() const {
  const MutexLock lock(mutex_);
  return statistics_;
}

}  // namespace tulo
