// The system's progress object behind the neutral one.
#pragma once

#import <Foundation/Foundation.h>

#include <memory>

#include "platform/Progress.h"

namespace tulo::apple {

// The object for the system to hold; it shares its state with `progress`, and cancelling it is seen
// by whoever holds that. Autoreleased.
NSProgress* toNSProgress(const std::shared_ptr<platform::Progress>& progress);

}  // namespace tulo::apple
