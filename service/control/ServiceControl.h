// Answers the requests of the control socket: from a line of JSON to the operation and back.
//
// Threads: any thread, several at once.
// Errors: none; what goes wrong is the answer.
#pragma once

#include <string>

#include "service/control/ControlParts.h"
#include "service/control/ControlServer.h"

namespace tulo {

// Answers one request; the last line sent has "ok". True when the service shall end.
bool answerControl(const ControlParts& parts, const std::string& request,
                   const ControlServer::Emit& emit);

}  // namespace tulo
