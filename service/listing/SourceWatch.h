// Notices that the host has committed something.
//
// The protocol has no push of its own here, so the files that the host writes are watched: the
// index database with its companions. What is compared is a fingerprint of the files' metadata and
// of the few bytes in which SQLite publishes a commit to other processes (the shared-memory file
// is written through a mapping, which no file notification reports).
//
// Threads: every member may be called on any thread.
#pragma once

#include <functional>
#include <string>
#include <thread>

#include "platform/linux/FileDescriptor.h"
#include "platform/linux/Mutex.h"

namespace tulo {

struct SourceFiles {
  std::string directory;  // may not exist yet
  std::string database;   // file name in it; empty: nothing to watch
};

class SourceWatch {
 public:
  explicit SourceWatch(SourceFiles files);
  ~SourceWatch();
  SourceWatch(const SourceWatch&) = delete;
  SourceWatch& operator=(const SourceWatch&) = delete;

  // Whether the source is there at all. An absent one proves nothing about what it held.
  bool present() const;

  // Equal texts: no commit in between. Costs a few microseconds.
  std::string fingerprint();

  // Whether a commit was published since fingerprint() looked last. Sees only what the database's
  // own processes publish, but costs well under a microsecond.
  bool publishedSince();

  // Whether the files were written so recently that the fingerprint cannot be told from a later
  // one by their times.
  bool recentlyWritten() const;

  // Calls `changed` on a thread of its own whenever the files may have changed, and now and then
  // without a reason, until stop() or the destructor.
  void start(std::function<void()> changed);
  void stop();

 private:
  std::string path(const char* suffix) const;
  void openPublished() TULO_REQUIRES(mutex_);
  // What identifies the last commit; empty while no process publishes any.
  std::string headerFrames() TULO_REQUIRES(mutex_);
  std::string committedFrames();
  void run(const std::function<void()>& changed);

  SourceFiles files_;
  // A leaf.
  Mutex mutex_;
  std::string lastFrames_ TULO_GUARDED_BY(mutex_);
  FileDescriptor published_ TULO_GUARDED_BY(mutex_);
  std::thread thread_;
  const FileDescriptor wake_;
};

}  // namespace tulo
