// Room on the disk that is kept for the day on which there is none left. Deleting takes room in the
// database's log before it gives any back, and so does starting; without this, a disk that is full
// to the last byte could not be emptied any more.
//
// Threads: every member may be called on any thread.
// Errors: none; without room there is no reserve.
#pragma once

#include <cstdint>
#include <string>

#include "platform/linux/Mutex.h"

namespace tulo {

class Reserve {
 public:
  static constexpr std::int64_t kPiece = 1 << 20;
  static constexpr std::int64_t kWhole = 8 * kPiece;
  // What the disk must have beside it before it is made: on a small disk the user's files come
  // first.
  static constexpr std::int64_t kBeside = 3 * kWhole;

  // Takes what an earlier run left in that file; makes nothing yet.
  explicit Reserve(std::string path);

  // Gives a piece back to the disk. False when nothing is left.
  bool giveBack() TULO_EXCLUDES(mutex_);
  // The same if the disk has as good as no room.
  void giveBackIfFull() TULO_EXCLUDES(mutex_);
  // Makes it whole again if there is room. A step of the housekeeping; false when there was nothing
  // to do.
  bool refillStep() TULO_EXCLUDES(mutex_);
  std::int64_t size() const;

 private:
  const std::string path_;
  // Guards the file, too; a leaf.
  mutable Mutex mutex_;
  std::int64_t size_ TULO_GUARDED_BY(mutex_) = 0;
};

}  // namespace tulo
