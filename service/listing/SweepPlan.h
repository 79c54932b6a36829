// Which folder the background lists next, though nobody asks for it.
//
// A pass goes over the folders that the kernel knows and that are behind, and is planned anew when
// the generation changes: a hand's breadth of the most recently used ones first. After it come the
// folders whose listing failed, or was out of date when it arrived.
//
// Threads: every member may be called on any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <unordered_set>
#include <vector>

#include "platform/linux/Mutex.h"
#include "service/kernel/Folders.h"

namespace tulo {

class SweepPlan {
 public:
  explicit SweepPlan(Folders& folders) : folders_(folders) {}

  struct Step {
    NodeId folder = kNoNode;  // kNoNode: there is nothing to do
    bool beginsPass = false;
    bool isRetry = false;
    // The kernel's listings of these are to be dropped: they would have to wait for long.
    std::vector<NodeId> overtaken;
  };
  // `isPouring`: the next commit will cut the pass short.
  Step next(std::uint64_t generation, bool isPouring);

  // Whether the pass was planned for another generation.
  bool isBehind(std::uint64_t generation) const;

  // The folder is to be listed once more although nothing was committed.
  void tryAgain(NodeId folder);

 private:
  void plan(std::uint64_t generation, bool isPouring) TULO_REQUIRES(mutex_);
  std::vector<NodeId> wholePass(std::uint64_t generation) const;
  std::vector<NodeId> shortPass(std::uint64_t generation) TULO_REQUIRES(mutex_);
  std::uint64_t verified(NodeId folder) const { return folders_.verified(folder).value_or(0); }
  NodeId takeRetry() TULO_REQUIRES(mutex_);

  Folders& folders_;

  // Before the folders'.
  mutable Mutex mutex_;
  std::deque<NodeId> pass_ TULO_GUARDED_BY(mutex_);
  std::uint64_t generation_ TULO_GUARDED_BY(mutex_) = 0;
  std::size_t stepsInPass_ TULO_GUARDED_BY(mutex_) = 0;
  bool oldestFirst_ TULO_GUARDED_BY(mutex_) = false;
  std::unordered_set<NodeId> retries_ TULO_GUARDED_BY(mutex_);
};

}  // namespace tulo
