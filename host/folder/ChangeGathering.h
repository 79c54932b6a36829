// When what was noticed of a folder is told: gathered until nothing more comes, so that a program
// which makes a thousand files makes a few commits of the index, not a thousand.
//
// Threads: belongs to one thread at a time.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>

namespace tulo::host {

class ChangeGathering {
 public:
  using Clock = std::chrono::steady_clock;
  // A folder's identifier and the name of an entry in it.
  using Change = std::pair<std::string, std::string>;

  struct Batch {
    std::set<Change> changes;
    // Some are missing: everything must be looked at, which takes these along.
    bool lost = false;
  };

  // Something has happened, whatever it was.
  void notice(Clock::time_point now);
  void add(Change change) { changes_.insert(std::move(change)); }
  // Of a file that is being written to: told now and then, for as long as that goes on.
  void addWritten(Change change, Clock::time_point now);
  void lose() { lost_ = true; }
  // The halves of a move, which are told together.
  void beginMove(std::uint32_t cookie, Clock::time_point now);
  void endMove(std::uint32_t cookie);

  // How long to wait for more before asking again, and `longest` where there is nothing to tell.
  std::chrono::milliseconds waitTime(std::chrono::milliseconds longest) const;
  // What is to be told now.
  std::optional<Batch> take(Clock::time_point now);

 private:
  bool isQuiet(Clock::time_point now) const;

  std::set<Change> changes_;
  // With the time when each is to be told.
  std::map<Change, Clock::time_point> written_;
  Clock::time_point first_;
  Clock::time_point last_;
  // The cookie of a move of which only the first half has come, or 0.
  std::uint32_t openMove_ = 0;
  Clock::time_point openMoveSince_;
  bool lost_ = false;
};

}  // namespace tulo::host
