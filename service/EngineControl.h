// What the control socket's operations need of an engine, without knowing it.
#pragma once

#include <string>

#include "service/Engine.h"
#include "service/control/ControlParts.h"

namespace tulo {

// They refer to the engine, which must outlive them.
ControlParts controlPartsOf(Engine& engine, const std::string& mountPoint);

}  // namespace tulo
