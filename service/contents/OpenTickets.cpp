#include "service/contents/OpenTickets.h"

#include <cerrno>
#include <utility>

namespace tulo {

OpenTickets::Ticket OpenTickets::add(OpenCompletion completion) {
  const MutexLock lock(mutex_);
  const Ticket ticket = next_++;
  waiters_[ticket] = {std::move(completion), false, stopping_};
  return ticket;
}

bool OpenTickets::arm(Ticket ticket) {
  const State state = armed(ticket);
  if (state == State::cancelled) answer(ticket, {EINTR, nullptr});
  return state == State::waiting;
}

OpenTickets::State OpenTickets::armed(Ticket ticket) {
  const MutexLock lock(mutex_);
  const auto found = waiters_.find(ticket);
  if (found == waiters_.end()) return State::gone;
  found->second.armed = true;
  return found->second.cancelled ? State::cancelled : State::waiting;
}

void OpenTickets::cancel(Ticket ticket) {
  if (mayBeAnswered(ticket)) answer(ticket, {EINTR, nullptr});
}

// Who is not armed yet is told when that happens.
bool OpenTickets::mayBeAnswered(Ticket ticket) {
  const MutexLock lock(mutex_);
  const auto found = waiters_.find(ticket);
  if (found == waiters_.end()) return false;
  found->second.cancelled = true;
  return found->second.armed;
}

void OpenTickets::answer(Ticket ticket, OpenAnswer answer) {
  if (const OpenCompletion completion = take(ticket)) completion(std::move(answer));
}

OpenCompletion OpenTickets::take(Ticket ticket) {
  const MutexLock lock(mutex_);
  const auto found = waiters_.find(ticket);
  if (found == waiters_.end()) return nullptr;
  OpenCompletion completion = std::move(found->second.completion);
  waiters_.erase(found);
  return completion;
}

void OpenTickets::stop() {
  std::unordered_map<Ticket, Waiter> waiters;
  {
    const MutexLock lock(mutex_);
    stopping_ = true;
    waiters.swap(waiters_);
  }
  for (const auto& [ticket, waiter] : waiters)
    waiter.completion({EINTR, nullptr});
}

}  // namespace tulo
