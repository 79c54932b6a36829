// The way from a session to its connection. Private to this room: everything else asks the
// functions that say what happens.
#pragma once

#include "sqlite/Connection.h"

namespace tulo {

class ReplicaReader;

// Lives as long as the session.
sqlite::Connection& sqlOf(ReplicaReader& session);

}  // namespace tulo
