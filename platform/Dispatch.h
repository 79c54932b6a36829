// The system's global concurrent queues.
#pragma once

#include <functional>

namespace tulo::platform {

enum class QualityOfService { userInitiated, utility };

// A process-wide concurrent queue whose workers may block for minutes: it grows as long as all of
// its workers are busy, up to a bound (64 workers on Linux), and shrinks when they are idle. The
// utility queue's workers run at lower processor and input/output priority.
//
// Threads: async may be called on any thread, also from a work item.
// Lifetime: the queues live as long as the process. Everything that was submitted runs, unless the
// process ends first; a work item must not throw.
class DispatchQueue {
 public:
  static DispatchQueue& global(QualityOfService qualityOfService);

  // Submits the work and returns at once.
  virtual void async(std::function<void()> work) = 0;

 protected:
  ~DispatchQueue() = default;
};

}  // namespace tulo::platform
