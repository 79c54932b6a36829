// Tells the kernel what is no longer true of its caches.
//
// Everything that did not come through the mount ends up here after it is committed. One thread
// delivers, in order, with no lock held: a delivery may wait for a directory that a program is
// just looking into. Therefore nothing that answers a look-up or a listing may wait for a
// delivery; opening a file may.
//
// Threads: every member may be called on any thread.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/linux/Mutex.h"
#include "service/replica/Node.h"

namespace tulo {

struct Invalidation {
  enum class Kind {
    entryChanged,       // the name in the folder means something else now, or exists now
    entryDeleted,       // the name in the folder is gone, and so is what it named
    attributesChanged,  // the node's attributes
    dataChanged,        // the node's data (for a folder: its listing) and attributes
  };
  Kind kind = Kind::dataChanged;
  NodeId folder = kNoNode;  // of the name
  NodeId node = kNoNode;
  std::string name;

  bool operator==(const Invalidation&) const = default;
};

inline Invalidation entryChanged(NodeId folder, std::string name) {
  return {Invalidation::Kind::entryChanged, folder, kNoNode, std::move(name)};
}
inline Invalidation entryDeleted(NodeId folder, NodeId node, std::string name) {
  return {Invalidation::Kind::entryDeleted, folder, node, std::move(name)};
}
inline Invalidation attributesChanged(NodeId node) {
  return {Invalidation::Kind::attributesChanged, kNoNode, node, {}};
}
inline Invalidation dataChanged(NodeId node) {
  return {Invalidation::Kind::dataChanged, kNoNode, node, {}};
}

using Invalidations = std::vector<Invalidation>;

// Where invalidations go: the kernel, or a recorder in tests.
class InvalidationSink {
 public:
  virtual ~InvalidationSink() = default;
  // Never called concurrently.
  virtual void deliver(const Invalidation& invalidation) = 0;
};

class Notifier {
 public:
  Notifier() = default;
  ~Notifier();
  Notifier(const Notifier&) = delete;
  Notifier& operator=(const Notifier&) = delete;

  void start(InvalidationSink& sink);
  // What is still queued is dropped; functions that wait are called. Afterwards nothing is queued
  // any more, and waiting functions are called at once.
  void stop();

  void queue(Invalidations invalidations);

  // Calls the function once all that is queued now is delivered: at once on this thread when there
  // is nothing, on the delivering thread otherwise.
  void afterDelivery(std::function<void()> function);

  // Delivers everything queued on the calling thread: for tests, instead of start().
  void deliverNow(InvalidationSink& sink);

 private:
  // Either an invalidation or, if there is one, a function that waited for those before it.
  struct Work {
    Invalidation invalidation;
    std::function<void()> function;
  };

  void run(InvalidationSink& sink);
  static void perform(Work& work, InvalidationSink* sink);

  // A leaf, never held during a delivery.
  Mutex mutex_;
  Condition changed_;
  std::deque<Work> queue_ TULO_GUARDED_BY(mutex_);
  bool delivering_ TULO_GUARDED_BY(mutex_) = false;
  bool running_ TULO_GUARDED_BY(mutex_) = false;
  bool stopping_ TULO_GUARDED_BY(mutex_) = false;
  std::thread thread_ TULO_GUARDED_BY(mutex_);
};

}  // namespace tulo
