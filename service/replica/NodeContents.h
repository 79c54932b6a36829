// Which contents a node has, and how they stand to the host's: the state of its row, together with
// the rows of the contents.
//
// Threads: the functions run inside the transaction or reading session that they are given.
// Errors: DatabaseError.
#pragma once

#include <cstdint>
#include <vector>

#include "service/replica/ReplicaWriter.h"

namespace tulo::nodeContents {

// Makes contents that were downloaded those of the node, whose former ones become unused.
void adopt(ReplicaWriter& writer, NodeId node, ContentId content, std::int64_t blocks);
// The node becomes dataless; its contents become unused.
void drop(ReplicaWriter& writer, NodeId node);

// The contents are the node's, and about to be changed here: newer than the host's, and not on the
// disk.
void beginChange(ReplicaWriter& writer, NodeId node, ContentId content);
// Contents found without a row become the node's, and are newer than the host's.
void recover(ReplicaWriter& writer, NodeId node, ContentId content, std::int64_t size,
             std::int64_t blocks);
// The contents are the node's, whatever its state.
void set(ReplicaWriter& writer, NodeId node, ContentId content);
// What is here is newer than what the host has.
void markDirty(ReplicaWriter& writer, NodeId node);
// The same, unless nothing is here.
void markDirtyIfAny(ReplicaWriter& writer, NodeId node);
// The host has what is here.
void markDownloaded(ReplicaWriter& writer, NodeId node);

// Drops what may not have reached the disk before the machine went down, but for what was changed
// here or is being sent.
void dropDoubtful(ReplicaWriter& writer);

// A node with contents that can be had from the host again and are not kept.
struct Cached {
  NodeId node = kNoNode;
  WallSeconds lastUsed{};
  std::int64_t blocks = 0;
};
// Some of them, the least used first, after the given one.
std::vector<Cached> leastUsed(ReplicaReader& reader, const Cached& after, std::int64_t limit);
// Files whose contents exist here alone, or are to go up.
std::vector<NodeId> changed(ReplicaReader& reader);

}  // namespace tulo::nodeContents
