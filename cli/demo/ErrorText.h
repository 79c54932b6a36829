// The system's errors in words.
#pragma once

#include <string>

#include "platform/Error.h"

namespace tulo::cli::demo {

// "server unreachable (NSFileProviderErrorDomain -1004)".
std::string errorText(const platform::NSError& error);

}  // namespace tulo::cli::demo
