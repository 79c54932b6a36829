// The way of an answer to the peer.
//
// Threads: any thread.
#pragma once

#include <chrono>

#include "host/server/Answer.h"
#include "host/server/StopSignal.h"

namespace tulo::host {

// How often whoever waits for a peer looks whether the host is stopping.
inline constexpr std::chrono::milliseconds stopCheck{100};

// Gives the answer in its manner over a non-blocking connection, which the caller closes. Gives up
// when the peer takes nothing for longer than `patience`, and when the host stops.
void deliver(int connection, const Answer& answer, std::chrono::milliseconds patience,
             StopSignal& stop);

}  // namespace tulo::host
