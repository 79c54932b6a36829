// The operations of the control socket that are about changes on their way to the host.
//
// A request names what it means by "nodes" (numbers) and by "deleted" (objects with "folder" and
// "name", for what has no number any more that anybody could look up); with neither, everything.
//
// Threads: as Engine.
// Errors: json::exception for what is no request, DatabaseError.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include "service/Engine.h"
#include "service/control/Control.h"

namespace tulo::control {

// The part of the status that is about changes.
nlohmann::json changesStatus(Engine& engine);

// What there is under the nodes, in words that a question to the user can be made of.
nlohmann::json changes(Engine& engine, const nlohmann::json& request);

// Sends what waits at once. "wait": answers when nothing waits any more, when "timeout"
// milliseconds are over, or when nobody listens; meanwhile tells how much is left.
nlohmann::json flush(Engine& engine, const nlohmann::json& request,
                     const ControlServer::Emit& emit);

nlohmann::json retry(Engine& engine, const nlohmann::json& request);
nlohmann::json discard(Engine& engine, const nlohmann::json& request);

}  // namespace tulo::control
