// Which downloads there are, who waits for each, and which one begins next.
//
// A file is downloaded once however many want it. What somebody waits for goes before what is
// fetched ahead, of which only a few run at a time.
//
// Threads: every member may be called on any thread; completions are not called here.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <unordered_map>
#include <vector>

#include "platform/linux/Mutex.h"
#include "service/base/Time.h"
#include "service/contents/Download.h"

namespace tulo {

enum class DownloadPriority {
  opened,  // somebody waits for it
  ahead,
};

// Called with 0, or with the errno that says why the contents are not here.
using FetchCompletion = std::function<void(int error)>;

// A download in words for the user.
struct Transfer {
  NodeId node = kNoNode;
  std::int64_t size = 0;
  WallSeconds startedAt{};
  bool ahead = false;
  bool active = false;
};

class DownloadQueue {
 public:
  static constexpr std::size_t kParallel = 16;
  static constexpr std::size_t kParallelAhead = 4;
  static constexpr std::size_t kMostAhead = 32;

  // False after stop(): the completion is left to the caller.
  bool add(NodeId node, DownloadPriority priority, FetchCompletion& completion)
      TULO_EXCLUDES(mutex_);
  // The one that begins now; null when none may.
  DownloadPointer next() TULO_EXCLUDES(mutex_);
  // Known once it has begun.
  void setSize(NodeId node, std::int64_t size) TULO_EXCLUDES(mutex_);
  // It has ended; returns those who wait for it, in the order in which they came.
  std::vector<FetchCompletion> remove(const Download& download) TULO_EXCLUDES(mutex_);
  // Whether enough of what nobody waits for is waiting.
  bool isFullAhead() const TULO_EXCLUDES(mutex_);
  std::vector<Transfer> transfers() const TULO_EXCLUDES(mutex_);
  // Nothing begins any more. Returns all that is left, to be removed by the caller.
  std::vector<DownloadPointer> stop() TULO_EXCLUDES(mutex_);

 private:
  struct Entry {
    DownloadPointer download;
    Transfer transfer;
    std::vector<FetchCompletion> waiters;
  };

  Entry& entryFor(NodeId node, bool ahead) TULO_REQUIRES(mutex_);
  void hurry(Entry& entry) TULO_REQUIRES(mutex_);
  NodeId takeFirst() TULO_REQUIRES(mutex_);

  // A leaf.
  mutable Mutex mutex_;
  bool stopping_ TULO_GUARDED_BY(mutex_) = false;
  std::unordered_map<NodeId, Entry> entries_ TULO_GUARDED_BY(mutex_);
  std::deque<NodeId> waitingOpened_ TULO_GUARDED_BY(mutex_);
  std::deque<NodeId> waitingAhead_ TULO_GUARDED_BY(mutex_);
  std::size_t active_ TULO_GUARDED_BY(mutex_) = 0;
  std::size_t activeAhead_ TULO_GUARDED_BY(mutex_) = 0;
};

}  // namespace tulo
