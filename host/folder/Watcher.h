// Tells which entries of the watched folders other programs have changed.
//
// Threads: watch() and forget() may be called on any thread. The callbacks run on a thread of the
// watcher's own, between start() and stop(), one at a time.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <unordered_map>
#include <utility>

#include "host/base/HostLog.h"
#include "platform/linux/FileDescriptor.h"

namespace tulo::host {

class Watcher {
 public:
  // A folder's identifier and the name of an entry in it.
  using Change = std::pair<std::string, std::string>;

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
  void forget(const std::string& ulid);

  void start(Callbacks callbacks);
  // Returns when no callback runs any more. Changes not told yet are dropped.
  void stop();

  // For tests: how often `lost` is called once the limit is reached.
  void setRescanInterval(std::chrono::milliseconds interval) { rescanInterval_ = interval; }

 private:
  using Clock = std::chrono::steady_clock;

  void run();
  int waitTime() const;
  void readEvents();
  void note(int watch, std::uint32_t mask, std::uint32_t cookie, const char* name);
  void deliver();
  bool isQuiet(Clock::time_point now) const;

  const HostLog& log_;
  FileDescriptor inotify_;
  FileDescriptor wake_;
  Callbacks callbacks_;
  std::thread thread_;
  std::chrono::milliseconds rescanInterval_{60'000};

  // Guards the two maps, which requests change while the thread reads them.
  std::mutex mutex_;
  std::unordered_map<int, std::string> ulidOfWatch_;
  std::unordered_map<std::string, int> watchOfUlid_;
  bool limitReached_ = false;

  // Of the thread alone.
  std::set<Change> changes_;
  std::map<Change, Clock::time_point> beingWritten_;
  Clock::time_point firstChange_;
  Clock::time_point lastChange_;
  Clock::time_point nextRescan_;
  // The cookie of a move of which only the first half has come, or 0.
  std::uint32_t openMove_ = 0;
  Clock::time_point openMoveSince_;
  bool lost_ = false;
};

}  // namespace tulo::host
