#include "platform/Dispatch.h"

#import <Foundation/Foundation.h>

#include <dispatch/dispatch.h>

#include <memory>
#include <utility>

#include "platform/apple/AutoreleasePool.h"

namespace tulo::platform {

namespace {

class GlobalQueue final : public DispatchQueue {
 public:
  explicit GlobalQueue(intptr_t identifier) : queue_(dispatch_get_global_queue(identifier, 0)) {}

  void async(std::function<void()> work) override {
    // Shared, because a block copies what it captures and the work may be costly to copy.
    const auto shared = std::make_shared<const std::function<void()>>(std::move(work));
    dispatch_async(queue_, ^{
      // The global queues have no pool of their own.
      const apple::AutoreleasePool pool;
      (*shared)();
    });
  }

 private:
  dispatch_queue_t queue_;
};

}  // namespace

DispatchQueue &DispatchQueue::global(QualityOfService qualityOfService) {
  // Never destroyed: work may be submitted while the process ends.
  static GlobalQueue &userInitiated = *new GlobalQueue(QOS_CLASS_USER_INITIATED);
  static GlobalQueue &utility = *new GlobalQueue(QOS_CLASS_UTILITY);
  return qualityOfService == QualityOfService::userInitiated ? userInitiated : utility;
}

}  // namespace tulo::platform
