// Moves what was committed from the write-ahead log into the database file, once that is much. It
// waits for the disk, which no writer shall.
//
// Threads: every member may be called on any thread.
// Lifetime: outlives the writer whose log it counts.
// Errors: DatabaseError.
#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "platform/linux/Mutex.h"

namespace tulo {

class ReplicaWriter;

namespace sqlite {
class Connection;
}

class Checkpoints {
 public:
  explicit Checkpoints(std::string path);
  ~Checkpoints();
  Checkpoints(const Checkpoints&) = delete;
  Checkpoints& operator=(const Checkpoints&) = delete;

  // From now on this counts what the writer's commits leave in the log.
  void count(ReplicaWriter& writer);
  // The next step has something to do, however little is in the log.
  void demand();
  // True when there was something to do.
  bool step() TULO_EXCLUDES(mutex_);

 private:
  const std::string path_;
  std::atomic<int> frames_ = 0;
  // Held during a checkpoint, taken alone.
  Mutex mutex_;
  std::unique_ptr<sqlite::Connection> database_ TULO_GUARDED_BY(mutex_);
};

}  // namespace tulo
