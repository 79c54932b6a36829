// Tells which entries of the watched folders other programs have changed.
//
// Threads: watch() and forget() may be called on any thread. The callbacks run on a thread of the
// watcher's own, between start() and stop(), one at a time.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <thread>

#include "host/base/HostLog.h"
#include "host/folder/ChangeGathering.h"
#include "host/folder/Followed.h"
#include "host/folder/RetryPause.h"
#include "host/folder/Watches.h"
#include "platform/linux/FileDescriptor.h"

namespace tulo::host {

class Watcher {
 public:
  using Change = ChangeGathering::Change;

  struct Callbacks {
    std::function<Followed(const std::set<Change>&)> changed;
    // Changes were lost, or could not be noticed or taken in: everything must be looked at. Called
    // again, with growing pauses, until it has not failed; nothing else is told meanwhile.
    std::function<Followed()> lost;
    // What could not be read is to be tried again; called with growing pauses as long as there is
    // something.
    std::function<Followed()> unread;
  };

  // `log` must outlive the watcher. Throws OperationError where the system refuses another watcher.
  explicit Watcher(const HostLog& log);
  ~Watcher();
  Watcher(const Watcher&) = delete;
  Watcher& operator=(const Watcher&) = delete;

  // Watches a folder under its identifier. Past the system's limit of watches it says so once, and
  // `lost` is called periodically from then on, until it could watch all folders again.
  void watch(const std::string& ulid, int folder);
  void forget(const std::string& ulid) { watches_.remove(ulid); }

  // `first`: what came of the look at everything before.
  void start(Callbacks callbacks, Followed first = Followed::all);
  // Returns when no callback runs any more. Changes not told yet are dropped.
  void stop();
  // Somebody else has lost changes; on any thread.
  void lookAgain();

  // For tests: how often `lost` is called once the limit is reached.
  void setRescanInterval(std::chrono::milliseconds interval) { rescanInterval_ = interval; }

 private:
  using Clock = ChangeGathering::Clock;

  void run();
  std::chrono::milliseconds waitTime() const;
  void readEvents();
  void note(int watch, std::uint32_t mask, std::uint32_t cookie, const char* name);
  void deliver();
  void tell(const std::set<Change>& changes);
  void tellLost();
  void plan(Followed outcome, Clock::time_point begun);

  const HostLog& log_;
  Watches watches_;
  FileDescriptor wake_;
  Callbacks callbacks_;
  std::thread thread_;
  std::chrono::milliseconds rescanInterval_{60'000};
  std::atomic<bool> stopping_{false};
  std::atomic<bool> isAsked_{false};
  std::atomic<bool> isLimited_{false};
  std::atomic<bool> isLimitTold_{false};

  // Of the thread alone.
  ChangeGathering gathering_;
  RetryPause everything_;
  RetryPause unread_;
  Clock::time_point nextRescan_;
};

}  // namespace tulo::host
