// What the parts of the service know, in the words of the control socket's replies.
//
// Threads: any thread; a reading session that is handed in is the caller's.
// Errors: sqlite::DatabaseError.
#pragma once

#include <optional>
#include <string>

#include "service/control/PendingChange.h"
#include "service/control/Replies.h"
#include "service/edits/Pending.h"
#include "service/kernel/OpenFiles.h"
#include "service/replica/Replica.h"
#include "service/upload/Uploader.h"

namespace tulo::control {

// From the root.
std::string pathOf(Replica& replica, NodeId node);

HostState hostState(const Uploader::Statistics& statistics);
ChangeCounts changeCounts(const journal::Counts& counts);

PendingChange shown(const OpenFiles& openFiles, const pending::Item& item);

// The node's change, with what keeps a new folder from being discarded; nothing when it has none.
std::optional<PendingChange> shownInFull(const OpenFiles& openFiles, ReplicaReader& reader,
                                         NodeId node);

}  // namespace tulo::control
