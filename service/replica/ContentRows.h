// The rows of the files of contents: which there are, whether a node uses them, whether their bytes
// are on the disk.
//
// Threads: the functions run inside the transaction or reading session that they are given.
// Errors: DatabaseError.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "service/replica/ReplicaWriter.h"

namespace tulo::contentRows {

// A number for contents that are about to come; unused until a node has them.
ContentId reserve(ReplicaWriter& writer, NodeId node);
// The same in two steps, for contents of a node that has no row yet.
ContentId next(ReplicaWriter& writer);
void add(ReplicaWriter& writer, ContentId content, NodeId node, bool used);
// Numbers below `first` are not given out.
void skip(ReplicaWriter& writer, ContentId first);

// What is used stays; what is not is removed when nobody has it open any more.
void use(ReplicaWriter& writer, ContentId content);
void disuse(ReplicaWriter& writer, ContentId content);
// Returns the blocks that it took up; nothing when it is in use, and stays.
std::optional<std::int64_t> remove(ReplicaWriter& writer, ContentId content);
// Some of them, by number, after the given one.
std::vector<ContentId> unused(ReplicaReader& reader, ContentId after, std::int64_t limit);

// Whether the bytes outlive a power cut.
bool isDurable(ReplicaReader& reader, ContentId content);
void setDurable(ReplicaWriter& writer, ContentId content);
// They are to be forced to the disk once more.
void clearDurable(ReplicaWriter& writer, ContentId content);
// Those in use whose bytes may not be on the disk yet.
std::vector<ContentId> notDurable(ReplicaReader& reader, std::int64_t limit);

// They were written to, and take up so much now. Returns by how much that is more than before.
std::int64_t setWritten(ReplicaWriter& writer, ContentId content, std::int64_t blocks);
// What all of them take up.
std::int64_t blocks(ReplicaReader& reader);

}  // namespace tulo::contentRows
