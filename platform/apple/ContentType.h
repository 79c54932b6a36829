// The system's uniform type objects and the neutral values.
//
// Threads: pure functions. Returned objects are autoreleased or live for ever.
#pragma once

#import <UniformTypeIdentifiers/UniformTypeIdentifiers.h>

#include <optional>

#include "platform/UTType.h"

namespace tulo::apple {

// Nothing for an identifier of which the system makes no type.
UTType* toUTType(const platform::UTType& type);

// Nothing for nil.
std::optional<platform::UTType> toType(UTType* type);

}  // namespace tulo::apple
