// A request's progress: how much of it is done, and whether the system has cancelled it.
//
// Threads: every member may be called on any thread.
// Lifetime: shared between the worker that advances it and the caller that reads it.
#pragma once

#include <cstdint>
#include <memory>

namespace tulo::platform {

class Progress {
 public:
  // Starts with no unit completed and not cancelled.
  static std::shared_ptr<Progress> withTotalUnitCount(std::int64_t total);

  virtual ~Progress() = default;
  virtual std::int64_t totalUnitCount() const = 0;
  virtual std::int64_t completedUnitCount() const = 0;
  virtual void setCompletedUnitCount(std::int64_t completed) = 0;
  virtual bool isCancelled() const = 0;
  // Only marks the progress; whether the work heeds it is the work's own decision.
  virtual void cancel() = 0;
};

}  // namespace tulo::platform
