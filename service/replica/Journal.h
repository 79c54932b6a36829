// What the host has not heard of yet: one row for each node that differs from what the host has.
//
// A row says what the host has (the base), the node's own row says what it shall be. So changes
// coalesce by themselves: the difference is worked out when it is sent. The sequence orders changes
// that depend on one another.
//
// Threads: the functions run inside the transaction or reading session of the connection.
// Errors: DatabaseError.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "service/replica/Replica.h"

namespace tulo {

struct Change {
  NodeId node = kNoNode;
  std::int64_t sequence = 0;
  bool deleted = false;
  bool contents = false;     // the contents here are to go up
  std::string baseParent;    // where the host has it: the folder's identifier and the name there;
  std::string baseFilename;  // both empty while the host does not have it
  std::string baseVersion;   // the version that the contents here grew from
  std::int64_t due = 0;      // milliseconds; not before
  std::int64_t attempts = 0;
  bool sent = false;  // a request was made, and what became of it is not known
  ContentId sentContent = kNoContent;
  std::string sentParent;
  std::string sentFilename;
  bool attention = false;  // refused; waits for the user
  bool held = false;       // stays here as long as its name says so
  std::string reason;
};

namespace journal {

struct Counts {
  std::int64_t pending = 0;
  std::int64_t attention = 0;
};

std::optional<Change> find(sqlite::Connection& database, NodeId node);
void put(sqlite::Connection& database, const Change& change);
void erase(sqlite::Connection& database, NodeId node);

// The row of a node that is made just now. To be put() afterwards.
Change fresh(ReplicaWriter& writer, NodeId node, std::int64_t due);

// The row of a node about to be changed: the one that is there, else one whose base is what the
// node is now. Neither waiting nor refused any more, and due at `due`. To be put() afterwards.
Change begin(ReplicaWriter& writer, const Node& node, std::int64_t due);

// begin() and put() for a change that is there already; false when there is none.
bool again(ReplicaWriter& writer, NodeId node, std::int64_t due);
// Nothing else of the change is different.
void postpone(sqlite::Connection& database, NodeId node, std::int64_t due);

struct Due {
  std::int64_t due = 0;
  NodeId node = kNoNode;
};
// Waiting changes that are due, after the given one.
std::vector<Due> due(sqlite::Connection& database, std::int64_t now, std::int64_t afterDue,
                     NodeId afterNode, std::int64_t limit);
std::vector<Change> all(sqlite::Connection& database, std::int64_t limit);
// The changes whose base is that place.
std::vector<Change> basedOn(sqlite::Connection& database, const std::string& parent,
                            const std::string& filename);
// The changes whose base is in that folder.
std::vector<Change> basedIn(sqlite::Connection& database, const std::string& parent);
// Whether there is one but that of the node.
bool anyBasedIn(sqlite::Connection& database, const std::string& parent, NodeId except);
// The changes of which it is not known whether they gave an item that place.
std::vector<Change> sentTo(sqlite::Connection& database, const std::string& parent,
                           const std::string& filename);
// The changes of nodes that are in the folder here.
std::vector<Change> inFolder(sqlite::Connection& database, NodeId folder);
bool isEmpty(sqlite::Connection& database);
// The nodes that stay here, by number: the host hears neither of them nor of what is done to them.
std::vector<NodeId> localNodes(sqlite::Connection& database, std::int64_t limit);
// Whether the node or anything below it has a change or is known here only.
bool anyBelow(sqlite::Connection& database, NodeId node);
// When the next change becomes due after `now`.
std::optional<std::int64_t> nextDue(sqlite::Connection& database, std::int64_t now);
Counts counts(sqlite::Connection& database);
// Makes the waiting change of the node, and those of the folders that it is in, due at `now`.
void hurry(sqlite::Connection& database, NodeId node, std::int64_t now);
// Retries at once what failed, or (all) also what was refused.
void retry(sqlite::Connection& database, std::int64_t now, bool refused);

}  // namespace journal

}  // namespace tulo
