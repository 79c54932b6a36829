#include "service/replica/LogForcer.h"

#include <fcntl.h>
#include <unistd.h>

#include <utility>

#include "sqlite/DatabaseError.h"

namespace tulo {

LogForcer::LogForcer(std::string log, std::function<std::uint64_t()> commits)
    : log_(std::move(log)), commits_(std::move(commits)) {}

LogForcer::~LogForcer() {
  std::thread forcer;
  {
    const MutexLock lock(mutex_);
    ending_ = true;
    forcerWanted_.notifyAll();
    forcer = std::move(forcer_);
  }
  if (forcer.joinable()) forcer.join();
}

void LogForcer::force() {
  MutexLock lock(mutex_);
  // A turn that began before now may have missed what was committed last.
  await(lock, begun_ + 1);
}

void LogForcer::forceIfCommitted() {
  if (commitsForced_ != commits_()) force();
}

std::uint64_t LogForcer::begin() {
  const MutexLock lock(mutex_);
  wanted_ = begun_ + 1;
  if (!forcer_.joinable()) forcer_ = std::thread([this] { forceLoop(); });
  forcerWanted_.notifyOne();
  return wanted_;
}

void LogForcer::end(std::uint64_t turn) {
  MutexLock lock(mutex_);
  await(lock, turn);
}

// Whoever finds nobody at it takes the turn.
void LogForcer::await(MutexLock& lock, std::uint64_t wanted) {
  while (forcing_ && done_ < wanted)
    turnEnded_.wait(lock);
  if (done_ < wanted) takeTurn();
  if (failed_ < wanted) return;
  throw sqlite::DatabaseError(SQLITE_IOERR, "replica.db: cannot force it to the disk");
}

void LogForcer::takeTurn() {
  forcing_ = true;
  const std::uint64_t turn = ++begun_;
  const std::uint64_t commits = commits_();
  mutex_.unlock();
  if (!file_) file_ = FileDescriptor(::open(log_.c_str(), O_RDONLY | O_CLOEXEC));
  const bool failed = !file_ || ::fdatasync(file_.get()) != 0;
  mutex_.lock();
  forcing_ = false;
  done_ = turn;
  if (failed) failed_ = turn;
  commitsForced_ = commits;
  turnEnded_.notifyAll();
  if (wanted_ > begun_) forcerWanted_.notifyOne();
}

void LogForcer::forceLoop() {
  MutexLock lock(mutex_);
  for (;;) {
    while (!ending_ && (wanted_ <= begun_ || forcing_))
      forcerWanted_.wait(lock);
    if (ending_) return;
    takeTurn();
  }
}

}  // namespace tulo
