// Whether the host is still at work on a request that nobody waits for any more.
//
// A host may take minutes for a request, and goes on with it when the service that made it is gone.
// It keeps the connection until it has answered, so the connections tell: the kernel lists those
// that were accepted at the host's socket, and whether the other end is still there.
//
// Threads: any. Errors: none; what cannot be seen is unknown.
#pragma once

#include <string>

namespace tulo {

enum class HostActivity {
  idle,     // it listens, and is at nothing that was left behind
  busy,     // it is at something that was left behind
  absent,   // nobody listens
  unknown,  // it cannot be seen from here
};

// `socket`: the path of the host's socket.
HostActivity activityOfHost(const std::string& socket);

}  // namespace tulo
