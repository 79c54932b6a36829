#include "service/listing/SweepPlan.h"

#include <algorithm>
#include <utility>

namespace tulo {

namespace {

// The most recently used folders come first in every pass, the rest oldest first, so that a host
// that commits all the time starves nobody.
constexpr std::size_t kHotFolders = 16;

// After so many folders of one pass the kernel's listings of the others are dropped: whoever lists
// one of them asks here first.
constexpr std::size_t kQuickFolders = 64;

}  // namespace

std::vector<NodeId> SweepPlan::wholePass(std::uint64_t generation) const {
  std::vector<NodeId> plan = folders_.olderThan(generation);
  if (plan.size() <= kHotFolders) return plan;
  std::vector<std::pair<std::uint64_t, NodeId>> rest;
  for (std::size_t i = kHotFolders; i < plan.size(); ++i)
    rest.emplace_back(verified(plan[i]), plan[i]);
  std::stable_sort(rest.begin(), rest.end(),
                   [](const auto& a, const auto& b) { return a.first < b.first; });
  for (std::size_t i = 0; i < rest.size(); ++i)
    plan[kHotFolders + i] = rest[i].second;
  return plan;
}

// A pass that the next commit cuts short after its first folder begins with the one that was used
// last and the one that has waited longest, in turns.
std::vector<NodeId> SweepPlan::shortPass(std::uint64_t generation) {
  std::vector<NodeId> plan = folders_.olderThan(generation);
  oldestFirst_ = !oldestFirst_;
  if (!oldestFirst_ || plan.empty()) return plan;
  std::swap(plan.front(), *std::min_element(plan.begin(), plan.end(), [&](NodeId a, NodeId b) {
              return verified(a) < verified(b);
            }));
  return plan;
}

void SweepPlan::plan(std::uint64_t generation, bool isPouring) {
  const std::vector<NodeId> folders = isPouring ? shortPass(generation) : wholePass(generation);
  pass_.assign(folders.begin(), folders.end());
  generation_ = generation;
  stepsInPass_ = 0;
}

NodeId SweepPlan::takeRetry() {
  if (retries_.empty()) return kNoNode;
  return retries_.extract(retries_.begin()).value();
}

SweepPlan::Step SweepPlan::next(std::uint64_t generation, bool isPouring) {
  Step step;
  const MutexLock lock(mutex_);
  step.beginsPass = generation_ != generation;
  if (step.beginsPass) plan(generation, isPouring);
  const bool slow = ++stepsInPass_ == kQuickFolders;
  if (pass_.empty()) {
    step.folder = takeRetry();
    step.isRetry = step.folder != kNoNode;
    return step;
  }
  step.folder = pass_.front();
  pass_.pop_front();
  if (slow) step.overtaken.assign(pass_.begin(), pass_.end());
  return step;
}

bool SweepPlan::isBehind(std::uint64_t generation) const {
  const MutexLock lock(mutex_);
  return generation_ != generation;
}

void SweepPlan::tryAgain(NodeId folder) {
  const MutexLock lock(mutex_);
  retries_.insert(folder);
}

}  // namespace tulo
