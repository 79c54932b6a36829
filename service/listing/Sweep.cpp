// The background half of Sync.
#include <algorithm>
#include <chrono>
#include <future>

#include "service/base/ServiceLog.h"
#include "service/listing/Sync.h"

namespace tulo {

namespace {

// The most recently used folders come first in every pass, the rest oldest first, so that a host
// that commits all the time starves nobody.
constexpr std::size_t kHotFolders = 16;

// After so many folders of one pass the kernel's listings of the others are dropped: whoever lists
// one of them asks here first.
constexpr std::size_t kQuickFolders = 64;

constexpr std::chrono::milliseconds kRetryInterval{500};

class ChangeObserver final : public platform::NSFileProviderChangeObserver {
 public:
  void didUpdateItems(std::vector<platform::ItemPointer>) override {}
  void didDeleteItems(std::vector<platform::NSFileProviderItemIdentifier>) override {}
  void finishEnumeratingChanges(const platform::NSFileProviderSyncAnchor&, bool) override {}
  void finishEnumeratingWithError(const platform::NSError&) override {}
};

}  // namespace

std::vector<NodeId> Sync::planPass(std::uint64_t generation) {
  std::vector<NodeId> plan = folders_.olderThan(generation);
  if (plan.size() <= kHotFolders) return plan;
  std::vector<std::pair<std::uint64_t, NodeId>> rest;
  for (std::size_t i = kHotFolders; i < plan.size(); ++i) {
    rest.emplace_back(folders_.verified(plan[i]).value_or(0), plan[i]);
  }
  std::stable_sort(rest.begin(), rest.end(),
                   [](const auto& a, const auto& b) { return a.first < b.first; });
  for (std::size_t i = 0; i < rest.size(); ++i)
    plan[kHotFolders + i] = rest[i].second;
  return plan;
}

// A pass that the next commit cuts short after its first folder begins with the one that was used
// last and the one that has waited longest, in turns.
std::vector<NodeId> Sync::planShortPass(std::uint64_t generation) {
  std::vector<NodeId> plan = folders_.olderThan(generation);
  oldestFirst_ = !oldestFirst_;
  if (!oldestFirst_ || plan.empty()) return plan;
  const auto age = [this](NodeId folder) { return folders_.verified(folder).value_or(0); };
  std::swap(plan.front(), *std::min_element(plan.begin(), plan.end(),
                                            [&](NodeId a, NodeId b) { return age(a) < age(b); }));
  return plan;
}

// The protocol's own question about changes. Every listing is compared anyway, so the answer only
// serves to show the anchor.
void Sync::askAnchor() {
  const auto enumerator =
      extension_->enumerator(platform::NSFileProviderRootContainerItemIdentifier(), {});
  std::string last;
  {
    std::lock_guard lock(runningMutex_);
    last = statistics_.anchor;
  }
  if (!last.empty()) enumerator->enumerateChanges(std::make_shared<ChangeObserver>(), last);
  enumerator->currentSyncAnchor([this](std::optional<platform::NSFileProviderSyncAnchor> anchor) {
    std::lock_guard lock(runningMutex_);
    statistics_.anchor = anchor.value_or("");
  });
}

void Sync::dropListings() {
  Invalidations invalidations;
  {
    std::lock_guard lock(sweepMutex_);
    for (NodeId folder : pass_)
      invalidations.push_back(dataChanged(folder));
  }
  notifier_.queue(std::move(invalidations));
}

bool Sync::sweepStep() {
  const std::uint64_t now = generation();
  NodeId folder = kNoNode;
  bool newPass = false;
  bool drop = false;
  bool retried = false;
  {
    std::lock_guard lock(sweepMutex_);
    if (passGeneration_ != now) {
      const bool isShort = pace_.isPouring(SweepPace::Clock::now());
      const std::vector<NodeId> plan = isShort ? planShortPass(now) : planPass(now);
      pass_.assign(plan.begin(), plan.end());
      passGeneration_ = now;
      sweptInPass_ = 0;
      newPass = true;
    }
    drop = ++sweptInPass_ == kQuickFolders;
    if (!pass_.empty()) {
      folder = pass_.front();
      pass_.pop_front();
    } else if (!retry_.empty()) {
      folder = *retry_.begin();
      retry_.erase(retry_.begin());
      retried = true;
    }
  }
  if (newPass) askAnchor();
  if (folder == kNoNode) return false;
  if (drop) dropListings();
  std::promise<int> done;
  refresh(folder, [&done](int error) { done.set_value(error); });
  const int error = done.get_future().get();
  return error == 0 || !retried;
}

bool Sync::waitForWork(std::unique_lock<std::mutex>& lock) {
  sweepWanted_.wait_for(lock, kRetryInterval,
                        [this] { return stopping_ || passGeneration_ != generation(); });
  return !stopping_;
}

// False when the sweep is to end.
bool Sync::rest(std::unique_lock<std::mutex>& lock) {
  for (;;) {
    if (stopping_) return false;
    const auto now = SweepPace::Clock::now();
    const auto due = pace_.due(now);
    if (due <= now) return true;
    sweepWanted_.wait_until(lock, due);
  }
}

void Sync::sweepLoop() {
  std::unique_lock lock(sweepMutex_);
  while (waitForWork(lock)) {
    pace_.beganRun(SweepPace::Clock::now());
    for (bool more = true; more && rest(lock);) {
      lock.unlock();
      const auto began = SweepPace::Clock::now();
      more = sweepStep();
      lock.lock();
      pace_.listed(began, SweepPace::Clock::now());
    }
  }
}

void Sync::start() {
  sweeper_ = std::thread([this] { sweepLoop(); });
  source_.start([this] { checkSource(); });
}

void Sync::stop() {
  source_.stop();
  {
    std::lock_guard lock(sweepMutex_);
    std::lock_guard running(runningMutex_);
    stopping_ = true;
    sweepWanted_.notify_all();
  }
  if (sweeper_.joinable()) sweeper_.join();
  workers_.stop();
  // Listings and look-ups that the provider has not answered hold references to this object.
  std::unique_lock lock(runningMutex_);
  runningChanged_.wait(lock, [this] { return running_.empty() && lookUps_ == 0; });
}

}  // namespace tulo
