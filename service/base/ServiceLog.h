// The service's log.
#pragma once

#include "platform/Log.h"

namespace tulo {

// Any thread; lives as long as the process.
const platform::Log& serviceLog();

}  // namespace tulo
