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
#include "host/folder/Watches.h"
#include "platform/linux/FileDescriptor.h"

namespace tulo::host {

class Watcher {
 public:
  using Change = ChangeGathering::Change;

  struct Callbacks {
    std::function<void(const std::set<Change>&)> changed;
    // Changes were lost, or could not be noticed: everything must be looked at.
    std::function<void()> lost;
  };

  // `log` must outlive the watcher. Throws OperationError where the system refuses another watcher.
  explicit Watcher(const HostLog& log);
  ~Watcher();
  Watcher(const Watcher&) = delete;
  Watcher& operator=(const Watcher&) = delete;

  // Watches a folder under its identifier. Past the system's limit of watches it says so once, and
  // `lost` is called periodically from then on.
  void watch(const std::string& ulid, int folder);
  void forget(const std::string& ulid) { watches_.remove(ulid); }

  void start(Callbacks callbacks);
  // Returns when no callback runs any more. Changes not told yet are dropped.
  void stop();

  // For tests: how often `lost` is called once the limit is reached.
  void setRescanInterval(std::chrono::milliseconds interval) { rescanInterval_ = interval; }

 private:
  using Clock = ChangeGathering::Clock;

  void run();
  void readEvents();
  void note(int watch, std::uint32_t mask, std::uint32_t cookie, const char* name);
  void deliver();

  const HostLog& log_;
  Watches watches_;
  FileDescriptor wake_;
  Callbacks callbacks_;
  std::thread thread_;
  std::chrono::milliseconds rescanInterval_{60'000};
  std::atomic<bool> isLimited_{false};

  // Of the thread alone.
  ChangeGathering gathering_;
  Clock::time_point nextRescan_;
};

}  // namespace tulo::host
