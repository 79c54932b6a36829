// Forces the write-ahead log to the disk: what is committed outlives the end of the process, but a
// power cut only once that is done.
//
// It is done in turns. Those who ask while one is under way share the next: one that began before
// may have missed what they committed last.
//
// Threads: every member may be called on any thread; one of its own is there once somebody asked
// another to begin.
// Errors: DatabaseError for all who share a turn that failed: the disk says it once only.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <thread>

#include "platform/linux/FileDescriptor.h"
#include "platform/linux/Mutex.h"

namespace tulo {

class LogForcer {
 public:
  // `commits` says how many transactions there were. The file stays the same one for as long as
  // the writer's connection is open.
  LogForcer(std::string log, std::function<std::uint64_t()> commits);
  ~LogForcer();
  LogForcer(const LogForcer&) = delete;
  LogForcer& operator=(const LogForcer&) = delete;

  // Returns once all that was committed before is on the disk.
  void force() TULO_EXCLUDES(mutex_);
  // The same, unless nothing was committed since the last turn.
  void forceIfCommitted();
  // The same in two steps: the first has another thread begin, so that the caller can wait for
  // something else on the disk meanwhile; the second waits for the end.
  std::uint64_t begin() TULO_EXCLUDES(mutex_);
  void end(std::uint64_t turn) TULO_EXCLUDES(mutex_);

 private:
  void await(MutexLock& lock, std::uint64_t wanted) TULO_REQUIRES(mutex_);
  // Lets go of the lock meanwhile.
  void takeTurn() TULO_REQUIRES(mutex_);
  void forceLoop() TULO_EXCLUDES(mutex_);

  const std::string log_;
  const std::function<std::uint64_t()> commits_;
  std::atomic<std::uint64_t> commitsForced_ = 0;

  Mutex mutex_;
  Condition turnEnded_;
  Condition forcerWanted_;
  std::uint64_t wanted_ TULO_GUARDED_BY(mutex_) = 0;
  std::uint64_t begun_ TULO_GUARDED_BY(mutex_) = 0;
  std::uint64_t done_ TULO_GUARDED_BY(mutex_) = 0;
  std::uint64_t failed_ TULO_GUARDED_BY(mutex_) = 0;
  bool forcing_ TULO_GUARDED_BY(mutex_) = false;
  bool ending_ TULO_GUARDED_BY(mutex_) = false;
  std::thread forcer_ TULO_GUARDED_BY(mutex_);
  FileDescriptor file_;  // only who has the turn touches it
};

}  // namespace tulo
