#include "platform/Progress.h"

#include <atomic>

namespace tulo::platform {

namespace {

class AtomicProgress final : public Progress {
 public:
  explicit AtomicProgress(std::int64_t total) : total_(total) {}

  std::int64_t totalUnitCount() const override { return total_; }
  std::int64_t completedUnitCount() const override { return completed_; }
  void setCompletedUnitCount(std::int64_t completed) override { completed_ = completed; }
  bool isCancelled() const override { return cancelled_; }
  void cancel() override { cancelled_ = true; }

 private:
  const std::int64_t total_;
  std::atomic<std::int64_t> completed_ = 0;
  std::atomic<bool> cancelled_ = false;
};

}  // namespace

std::shared_ptr<Progress> Progress::withTotalUnitCount(std::int64_t total) {
  return std::make_shared<AtomicProgress>(total);
}

}  // namespace tulo::platform
