#include "service/replica/Checkpoints.h"

#include <utility>

#include "service/replica/GatheringLog.h"
#include "service/replica/ReplicaWriter.h"
#include "service/replica/Sql.h"

namespace tulo {

namespace {

// Some 16 MB.
constexpr int kManyFrames = 4000;

}  // namespace

Checkpoints::Checkpoints(std::string path) : path_(std::move(path)) {}

Checkpoints::~Checkpoints() = default;

void Checkpoints::count(ReplicaWriter& writer) {
  sqlOf(writer).countLogFrames(frames_);
}

void Checkpoints::demand() {
  frames_ = kManyFrames;
}

bool Checkpoints::step() {
  if (frames_ < kManyFrames) return false;
  const MutexLock lock(mutex_);
  if (!database_) {
    database_ = std::make_unique<sqlite::Connection>(path_, sqlite::Connection::Mode::create,
                                                     gatheringVfs());
  }
  // Counted anew by the next commit, which begins the log again if nobody reads it any more.
  frames_ = 0;
  database_->checkpoint();
  return true;
}

}  // namespace tulo
