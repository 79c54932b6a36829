// Which files and folders other programs changed or made a moment ago, as far as the index says so
// by now.
//
// A request says what is to be done to an item, not from which version it comes: its sender looked
// at the index before, and copied what it sends after that. A version that the index got since then
// is one that the sender has not seen, and must not be overwritten or deleted.
//
// Threads: not thread-safe; the account guards it. Errors: none.
#pragma once

#include <chrono>
#include <string>
#include <unordered_map>
#include <vector>

#include "host/base/EntryStat.h"

namespace tulo::host {

class RecentChanges {
 public:
  using Clock = std::chrono::steady_clock;

  void note(const std::string& ulid, Clock::time_point now = Clock::now());
  // Those that were noted since then.
  std::vector<std::string> since(Clock::time_point time) const;
  bool isSince(const std::string& ulid, Clock::time_point time) const;
  void forgetAll() { times_.clear(); }

  // Before the sender of a copy that was begun then looked at the index for the last time.
  static Clock::time_point lookBefore(DiskTime copyBegun);
  // The same for the sender of a request that came then.
  static Clock::time_point lookBefore(Clock::time_point requestCame);

 private:
  std::unordered_map<std::string, Clock::time_point> times_;
};

}  // namespace tulo::host
