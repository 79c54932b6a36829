// The log of the extension's front, made on first use. Any thread.
#pragma once

#include "platform/Log.h"

namespace tulo {

const platform::Log& extensionLog();

}  // namespace tulo
