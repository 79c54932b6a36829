#include "platform/apple/Progress.h"

#include "platform/apple/AutoreleasePool.h"
#include "platform/apple/Retained.h"

namespace tulo::apple {

namespace {

// Every progress of this platform is one of these.
class SystemProgress final : public platform::Progress {
 public:
  explicit SystemProgress(NSProgress *progress)
      : progress_(Retained<NSProgress *>::retaining(progress)) {}

  NSProgress *object() const { return progress_.get(); }

  std::int64_t totalUnitCount() const override { return [object() totalUnitCount]; }
  std::int64_t completedUnitCount() const override { return [object() completedUnitCount]; }
  void setCompletedUnitCount(std::int64_t completed) override {
    [object() setCompletedUnitCount:completed];
  }
  bool isCancelled() const override { return [object() isCancelled]; }
  void cancel() override { [object() cancel]; }

 private:
  Retained<NSProgress *> progress_;
};

}  // namespace

NSProgress *toNSProgress(const std::shared_ptr<platform::Progress> &progress) {
  return [[static_cast<const SystemProgress &>(*progress).object() retain] autorelease];
}

}  // namespace tulo::apple

namespace tulo::platform {

std::shared_ptr<Progress> Progress::withTotalUnitCount(std::int64_t total) {
  const apple::AutoreleasePool pool;
  return std::make_shared<apple::SystemProgress>([NSProgress progressWithTotalUnitCount:total]);
}

}  // namespace tulo::platform
