// One listing at a time for each folder, and who waits for it.
//
// Whoever asks while a listing runs that began for the current generation shares it; whoever asks
// for a later generation shares the next one, which begins when this one ends.
//
// Threads: every member may be called on any thread. No completion is called here.
#pragma once

#include <cstdint>
#include <functional>
#include <unordered_map>
#include <vector>

#include "platform/linux/Mutex.h"
#include "service/replica/Node.h"

namespace tulo {

// Called with 0, or with the errno that says why the folder could not be listed. A folder that was
// listed before can be read all the same.
using RefreshCompletion = std::function<void(int error)>;

class ListingQueue {
 public:
  enum class Place {
    first,    // a listing is to be started; finished() ends it
    waiting,  // for one that runs or will run
    refused,  // the completion was left to the caller
  };
  Place join(NodeId folder, std::uint64_t generation, RefreshCompletion& completion);

  // The listing reads what is there in that generation.
  void began(NodeId folder, std::uint64_t generation);

  struct Finished {
    std::vector<RefreshCompletion> waiters;
    bool again = false;  // another listing is to be started, for those who came later
  };
  // Nobody waits if no listing of the folder is under way.
  Finished finished(NodeId folder);

  // Nothing is begun from now on.
  void refuse();
  // Returns when no listing is under way.
  void awaitNone();

 private:
  struct Running {
    std::uint64_t generation = 0;
    std::vector<RefreshCompletion> waiters;
    std::vector<RefreshCompletion> next;
  };

  // A leaf.
  Mutex mutex_;
  Condition changed_;
  std::unordered_map<NodeId, Running> running_ TULO_GUARDED_BY(mutex_);
  bool refusing_ TULO_GUARDED_BY(mutex_) = false;
};

}  // namespace tulo
