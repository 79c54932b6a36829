// One request to the host that serves a container, as the host's own command makes it.
#pragma once

#include <string>

namespace tulo::host {

// Sends `request`, a JSON object, to the socket in `container`; returns the reply without its line
// feed. Throws StartError when no host answers there.
std::string askHost(const std::string& container, const std::string& request);

}  // namespace tulo::host
