// The contents that a request carried.
//
// Threads: the first inside a transaction; the others on any thread, which waits.
#pragma once

#include <optional>
#include <string>

#include "service/replica/Change.h"
#include "service/replica/ContentStore.h"
#include "service/replica/ReplicaWriter.h"
#include "service/upload/Provider.h"

namespace tulo {

// Lets go of what was sent with the last request, unless it is what the node has now.
void dropSentContents(ReplicaWriter& writer, const Change& change, ContentId current);

// Of a file of contents here; -1 when it is not there.
std::int64_t sizeOf(const ContentStore& store, ContentId contents);

// Whether the host's contents of the item are these, byte for byte; nothing when the provider was
// stopped. Throws when the host's cannot be had.
std::optional<bool> hostHasContents(Provider& provider, const ContentStore& store,
                                    const std::string& identifier, ContentId contents);

}  // namespace tulo
