// The engine's parts, for those who ask and steer it without knowing it.
#pragma once

#include <string>

#include "service/Engine.h"
#include "service/control/ControlParts.h"

namespace tulo {

// They refer to the engine, which must outlive them.
ControlParts controlPartsOf(Engine& engine, const std::string& mountPoint);

}  // namespace tulo
