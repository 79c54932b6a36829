#include "host/folder/ChangeGathering.h"

#include <algorithm>

namespace tulo::host {

namespace {

using std::chrono::milliseconds;

// A change is told when nothing has happened for the first time, or at the latest after the second.
constexpr milliseconds quietTime{40};
constexpr milliseconds longestWait{400};
// A file that stays open while it is written is looked at this often.
constexpr milliseconds writingInterval{1000};

}  // namespace

void ChangeGathering::notice(Clock::time_point now) {
  if (changes_.empty() && !lost_) first_ = now;
  last_ = now;
}

void ChangeGathering::addWritten(Change change, Clock::time_point now) {
  written_.emplace(std::move(change), now + writingInterval);
}

void ChangeGathering::beginMove(std::uint32_t cookie, Clock::time_point now) {
  openMove_ = cookie;
  openMoveSince_ = now;
}

void ChangeGathering::endMove(std::uint32_t cookie) {
  if (cookie == openMove_) openMove_ = 0;
}

milliseconds ChangeGathering::waitTime(milliseconds longest) const {
  milliseconds wait = longest;
  if (!changes_.empty() || lost_) wait = std::min(wait, quietTime);
  if (!written_.empty()) wait = std::min(wait, writingInterval / 4);
  return wait;
}

bool ChangeGathering::isQuiet(Clock::time_point now) const {
  // The other half of a move is just arriving; told apart they would be a removal and a new entry.
  if (openMove_ != 0 && now - openMoveSince_ < quietTime) return false;
  return now - last_ >= quietTime || now - first_ >= longestWait;
}

std::optional<ChangeGathering::Batch> ChangeGathering::take(Clock::time_point now) {
  std::erase_if(written_, [&](const auto& entry) {
    const bool isDue = entry.second <= now;
    if (isDue) changes_.insert(entry.first);
    return isDue;
  });
  if ((changes_.empty() && !lost_) || !isQuiet(now)) return std::nullopt;
  Batch batch{std::exchange(changes_, {}), std::exchange(lost_, false)};
  for (const Change& change : batch.changes)
    written_.erase(change);
  return batch;
}

}  // namespace tulo::host
