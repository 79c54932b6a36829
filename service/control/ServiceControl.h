// The operations of the control socket.
#pragma once

#include <string>

#include "service/Engine.h"
#include "service/control/Control.h"

namespace tulo {

// Answers one request; the last line sent has "ok". True when the service shall end.
bool answerControl(Engine& engine, const std::string& mountPoint, const std::string& request,
                   const ControlServer::Emit& emit);

}  // namespace tulo
