// What the host has not heard of yet: one row for each node that differs from what the host has.
//
// A row (Change) says what the host has, the node's own row says what it shall be. So changes
// coalesce by themselves: the difference is worked out when it is sent.
//
// Threads: the functions run inside the transaction or reading session that they are given.
// Errors: DatabaseError.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "service/replica/Change.h"
#include "service/replica/ReplicaWriter.h"

namespace tulo {

namespace journal {

struct Counts {
  std::int64_t pending = 0;
  std::int64_t attention = 0;
};

std::optional<Change> find(ReplicaReader& reader, NodeId node);
void put(ReplicaWriter& writer, const Change& change);
void erase(ReplicaWriter& writer, NodeId node);

// The row of a node that is made just now. To be put() afterwards.
Change fresh(ReplicaWriter& writer, NodeId node, WallTime due);

// The row of a node about to be changed: the one that is there, else one whose base is what the
// node is now. Neither waiting nor refused any more, and due at `due`. To be put() afterwards.
Change begin(ReplicaWriter& writer, const Node& node, WallTime due);

// begin() and put() for a change that is there already; false when there is none.
bool again(ReplicaWriter& writer, NodeId node, WallTime due);
// Nothing else of the change is different.
void postpone(ReplicaWriter& writer, NodeId node, WallTime due);

struct Due {
  WallTime due{};
  NodeId node = kNoNode;
};
// Waiting changes that are due, after the given one.
std::vector<Due> due(ReplicaReader& reader, WallTime now, WallTime afterDue, NodeId afterNode,
                     std::int64_t limit);
std::vector<Change> all(ReplicaReader& reader, std::int64_t limit);
// The changes whose base is that place.
std::vector<Change> basedOn(ReplicaReader& reader, const std::string& parent,
                            const std::string& filename);
// The changes whose base is in that folder.
std::vector<Change> basedIn(ReplicaReader& reader, const std::string& parent);
// Whether there is one but that of the node.
bool anyBasedIn(ReplicaReader& reader, const std::string& parent, NodeId except);
// The changes of which it is not known whether they gave an item that place.
std::vector<Change> sentTo(ReplicaReader& reader, const std::string& parent,
                           const std::string& filename);
// The same for any place in that folder.
std::vector<Change> sentInto(ReplicaReader& reader, const std::string& parent);
// The changes of nodes that are in the folder here.
std::vector<Change> inFolder(ReplicaReader& reader, NodeId folder);
bool isEmpty(ReplicaReader& reader);
// When the next change becomes due after `now`.
std::optional<WallTime> nextDue(ReplicaReader& reader, WallTime now);
// When the last change that waits becomes due.
std::optional<WallTime> latestDue(ReplicaReader& reader);
// No change waits until after `latest`: those that would are due at `now`, for what put their time
// so far away is a clock that was ahead.
void capDue(ReplicaWriter& writer, WallTime latest, WallTime now);
Counts counts(ReplicaReader& reader);
// Makes all that waits due at `now`.
void hurryAll(ReplicaWriter& writer, WallTime now);
// A folder has another identifier at the host: so have the places in it.
void folderBecame(ReplicaWriter& writer, const std::string& former, const std::string& identifier);
// Retries at once what failed, or (all) also what was refused.
void retry(ReplicaWriter& writer, WallTime now, bool refused);

}  // namespace journal

}  // namespace tulo
