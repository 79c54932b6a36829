// What the control socket's requests do, each in a file named after it. ServiceControl takes them
// apart and puts the replies together.
//
// Threads: any thread, several at once.
// Errors: sqlite::DatabaseError and ContentError, where the replica or the contents cannot be used.
#pragma once

#include <functional>

#include "service/control/ControlParts.h"
#include "service/control/Replies.h"
#include "service/control/Requests.h"
#include "service/control/StatusReply.h"

namespace tulo::control {

// Is told of progress; false when nobody listens any more.
using FilesListener = std::function<bool(const FilesProgress&)>;
using FlushListener = std::function<bool(const FlushProgress&)>;

StatusReply status(const ControlParts& parts);

Outcome setPinned(const ControlParts& parts, const FilesRequest& request, bool pinned);

// Returns when all files under the nodes are here, or failed; sooner when nobody listens.
FilesReply download(const ControlParts& parts, const FilesRequest& request,
                    const FilesListener& listener);

FilesReply evict(const ControlParts& parts, const FilesRequest& request);

// What there is under the nodes, in words that a question to the user can be made of.
ChangesReply changes(const ControlParts& parts, const ChangesRequest& request);

// Sends what waits at once. With `wait` it returns when nothing waits any more, when the time is
// over, or when nobody listens.
FlushReply flush(const ControlParts& parts, const FlushRequest& request,
                 const FlushListener& listener);

RetryReply retry(const ControlParts& parts, const ChangesRequest& request);

DiscardReply discard(const ControlParts& parts, const ChangesRequest& request);

}  // namespace tulo::control
