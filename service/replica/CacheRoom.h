// Whether more contents may come: how much they take up already, how much is on its way, and what
// the disk has. All in bytes.
//
// Threads: every member may be called on any thread.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>

namespace tulo {

struct CacheLimits {
  std::int64_t size = 10LL << 30;         // bytes that contents may take up
  double keepFreeFraction = 0.05;         // of the disk, that stays free
  std::int64_t keepFreeBytes = 64 << 20;  // and at least so much
};

class CacheRoom {
 public:
  // `directory`: on the disk that the contents are on.
  CacheRoom(std::string directory, CacheLimits limits);

  // To be freed before `wanted` more may come; 0 when they fit.
  std::int64_t shortage(std::int64_t wanted) const;
  // The same, counting the disk's own free space only.
  std::int64_t diskShortage(std::int64_t wanted) const;

  // How much the disk has free, from now on, for tests: a disk by itself has its own mind.
  void setDisk(std::function<std::int64_t()> free) { free_ = std::move(free); }

  // What contents take up, counted in blocks as the disk does.
  void setUsed(std::int64_t bytes) { used_ = bytes; }
  void addUsed(std::int64_t bytes) { used_ += bytes; }
  std::int64_t used() const { return used_; }
  // What downloads under way will take up; negative when they end.
  void reserve(std::int64_t bytes) { reserved_ += bytes; }
  std::int64_t reserved() const { return reserved_; }
  const CacheLimits& limits() const { return limits_; }

 private:
  const std::string directory_;
  const CacheLimits limits_;
  std::function<std::int64_t()> free_;
  std::atomic<std::int64_t> used_ = 0;
  std::atomic<std::int64_t> reserved_ = 0;
};

}  // namespace tulo
