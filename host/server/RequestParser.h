// A request as it comes over the socket.
//
// One request is one JSON object. Unknown keys are ignored, null stands for a key that is left out
// (but for the "parent" of a modify, where it means the top level); a key of another type, a
// missing key and an unknown operation are a BadRequest.
//
// Threads: pure functions.
#pragma once

#include <cstddef>
#include <string_view>

#include "host/account/Request.h"

namespace tulo::host {

// Longer requests are refused.
inline constexpr std::size_t maximumRequestSize = std::size_t{1} << 20;

// Throws BadRequest.
Request parseRequest(std::string_view text);

}  // namespace tulo::host
