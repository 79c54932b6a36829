// What the host is to be told of a change.
//
// The difference between what the host has and what the node shall be, worked out inside one
// transaction, in which what needs no telling is settled at once. No thread, no provider.
//
// Threads: immutable; plan() inside a transaction in which the node's contents cannot change.
// Errors: DatabaseError; ContentError where contents cannot be made.
#pragma once

#include <optional>
#include <utility>

#include "service/edits/LocalNames.h"
#include "service/replica/Change.h"
#include "service/replica/ContentStore.h"
#include "service/replica/ReplicaWriter.h"
#include "service/upload/Inheritance.h"
#include "service/upload/Plan.h"

namespace tulo {

// With neither, there is nothing to be told, or not yet.
struct Planned {
  std::optional<Plan> plan;
  NodeId wanted = kNoNode;  // a backup whose contents have to be here first
};

class Planner {
 public:
  // `isActive`: whether a node is being seen to just now.
  Planner(const LocalNames& localNames, const ContentStore& store, Inheritance::IsActive isActive)
      : localNames_(localNames), store_(store), isActive_(std::move(isActive)) {}

  // `aside`: the item makes room for another, under a name in between.
  Planned plan(ReplicaWriter& writer, NodeId node, bool aside, WallTime now) const;

 private:
  // The difference, once the node has its identity; ends the change when there is none.
  Planned planOfChange(ReplicaWriter& writer, Node& node, Change& change, WallTime now) const;
  // Whether somebody was faster and has the place.
  bool isOccupied(ReplicaWriter& writer, const std::vector<Change>& there, const Node& node) const;

  const LocalNames localNames_;
  const ContentStore& store_;
  const Inheritance::IsActive isActive_;
};

}  // namespace tulo
