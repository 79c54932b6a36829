#include "service/upload/Verdicts.h"

#include <algorithm>
#include <cerrno>

namespace tulo {

// The predicate may take the waiter's nodes away.
template <typename Predicate>
void Verdicts::finishWhere(const Predicate& predicate, int error) {
  std::vector<Completion> completions;
  {
    const MutexLock lock(mutex_);
    for (auto at = waiters_.begin(); at != waiters_.end();) {
      if (predicate(at->first, at->second)) {
        completions.push_back(std::move(at->second.completion));
        at = waiters_.erase(at);
      } else {
        ++at;
      }
    }
  }
  for (const Completion& completion : completions)
    completion(error);
}

Verdicts::Ticket Verdicts::begin(Completion completion) {
  const MutexLock lock(mutex_);
  const Ticket ticket = next_++;
  waiters_[ticket].completion = std::move(completion);
  return ticket;
}

void Verdicts::await(Ticket ticket, const std::vector<NodeId>& nodes, WallTime deadline) {
  const MutexLock lock(mutex_);
  const auto found = waiters_.find(ticket);
  if (found == waiters_.end()) return;
  found->second.nodes.insert(nodes.begin(), nodes.end());
  found->second.deadline = deadline;
  found->second.waits = true;
}

void Verdicts::cancel(Ticket ticket, int error) {
  finishWhere([ticket](Ticket each, const Waiter&) { return each == ticket; }, error);
}

bool Verdicts::isAwaited(NodeId node) const {
  const MutexLock lock(mutex_);
  return std::any_of(waiters_.begin(), waiters_.end(),
                     [node](const auto& each) { return each.second.nodes.contains(node); });
}

std::vector<NodeId> Verdicts::awaited() const {
  const MutexLock lock(mutex_);
  std::unordered_set<NodeId> nodes;
  for (const auto& [ticket, waiter] : waiters_)
    nodes.insert(waiter.nodes.begin(), waiter.nodes.end());
  return {nodes.begin(), nodes.end()};
}

void Verdicts::settled(NodeId node) {
  finishWhere(
      [node](Ticket, Waiter& waiter) {
        return waiter.nodes.erase(node) > 0 && waiter.nodes.empty();
      },
      0);
}

void Verdicts::failed(NodeId node, int error) {
  finishWhere([node](Ticket, const Waiter& waiter) { return waiter.nodes.contains(node); }, error);
}

void Verdicts::failAll(int error) {
  finishWhere([](Ticket, const Waiter& waiter) { return waiter.waits; }, error);
}

void Verdicts::expire(WallTime now) {
  finishWhere(
      [now](Ticket, const Waiter& waiter) { return waiter.waits && waiter.deadline <= now; },
      ETIMEDOUT);
}

std::optional<WallTime> Verdicts::nextDeadline() const {
  const MutexLock lock(mutex_);
  std::optional<WallTime> first;
  for (const auto& [ticket, waiter] : waiters_) {
    if (waiter.waits && (!first || waiter.deadline < *first)) first = waiter.deadline;
  }
  return first;
}

}  // namespace tulo
