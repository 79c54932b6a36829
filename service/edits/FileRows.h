// Brings a node's row to what the file of its contents says: size, blocks, time of change.
//
// Threads: noteWritten runs inside the caller's transaction, the others read and write by
// themselves. Errors: DatabaseError.
#pragma once

#include <sys/stat.h>

#include "service/edits/FileParts.h"

namespace tulo::fileRows {

// The contents were written to: `status` is what their file says now. Nothing is noted when the
// node has other contents by now. The change goes up a quiet time later.
void noteWritten(ReplicaWriter& writer, const FileParts& parts, NodeId node, ContentId content,
                 const struct stat& status);

// Puts what the row says by now into an entry that was read before.
void showCurrent(Entry& entry, Replica& replica);

// Sizes and times of all contents that were changed here, as nobody notes them in a crash.
void noteAfterRestart(const FileParts& parts);

}  // namespace tulo::fileRows
