#include <chrono>
#include <cstring>

#include "platform/linux/Mutex.h"
#include "service/contents/TreeWalk.h"
#include "service/control/Operations.h"
#include "service/control/Shown.h"

namespace tulo::control {

namespace {

constexpr std::size_t kUnderWay = 32;
constexpr milliseconds kRhythm{200};

// Downloads files with a bounded number under way, and tells how far that is.
class Batch {
 public:
  Batch(const ControlParts& parts, const FilesListener& listener)
      : parts_(parts), listener_(listener) {}

  // Returns when nothing is under way any more: the completions refer to this object.
  Failures download(const std::vector<NodeId>& files) TULO_EXCLUDES(mutex_) {
    std::size_t sent = 0;
    std::size_t told = 0;
    bool listening = true;
    while (listening && told < files.size()) {
      while (sent < files.size() && sent - done() < kUnderWay)
        fetch(files[sent++]);
      told = waitForMore(told);
      listening = listener_({.done = told, .total = files.size()});
    }
    return waitForAll(sent);
  }

 private:
  void fetch(NodeId file) {
    parts_.contents.fetch(file, Contents::Priority::opened,
                          [this, file](int error) { finished(file, error); });
  }

  void finished(NodeId file, int error) TULO_EXCLUDES(mutex_) {
    const std::string path = error != 0 ? pathOf(parts_.replica, file) : std::string();
    MutexLock lock(mutex_);
    ++done_;
    if (error != 0) failures_.push_back({path, std::strerror(error)});
    changed_.notifyAll();
  }

  std::size_t done() TULO_EXCLUDES(mutex_) {
    MutexLock lock(mutex_);
    return done_;
  }

  // How many are done: at once when these are more than were told, else when they are or after a
  // while.
  std::size_t waitForMore(std::size_t told) TULO_EXCLUDES(mutex_) {
    const auto end = std::chrono::steady_clock::now() + kRhythm;
    MutexLock lock(mutex_);
    while (done_ == told && changed_.waitUntil(lock, end)) {
    }
    return done_;
  }

  Failures waitForAll(std::size_t sent) TULO_EXCLUDES(mutex_) {
    MutexLock lock(mutex_);
    while (done_ != sent)
      changed_.wait(lock);
    return failures_;
  }

  const ControlParts& parts_;
  const FilesListener& listener_;
  Mutex mutex_;  // a leaf
  Condition changed_;
  std::size_t done_ TULO_GUARDED_BY(mutex_) = 0;
  Failures failures_ TULO_GUARDED_BY(mutex_);
};

}  // namespace

FilesReply download(const ControlParts& parts, const FilesRequest& request,
                    const FilesListener& listener) {
  TreeWalk walk(parts.replica, parts.sync);
  std::vector<NodeId> files;
  for (NodeId node : request.nodes) {
    const auto found =
        walk.files(node, [&](std::size_t count) { return listener({.done = 0, .total = count}); });
    files.insert(files.end(), found.begin(), found.end());
  }
  return {Outcome::with(Batch(parts, listener).download(files)), files.size()};
}

}  // namespace tulo::control
