// Whose turn it is to go to the host.
//
// Every change waits until the host can carry it out and nothing stands in its way: until its
// folder is there, its place is free, and a folder is not moved into what is still inside it. Where
// changes wait for one another in a ring (names exchanged, a file moved into a folder that takes
// its former place), one of them steps aside: its item is given a name in between.
//
// Threads: used with the session of one reader or transaction.
// Errors: DatabaseError.
#pragma once

#include <functional>
#include <optional>

#include "service/edits/LocalNames.h"
#include "service/replica/Change.h"
#include "service/replica/ReplicaReader.h"

namespace tulo {

enum class Turn { now, aside, later };

class UploadOrder {
 public:
  using IsActive = std::function<bool(NodeId)>;

  UploadOrder(ReplicaReader& reader, const LocalNames& localNames, const IsActive& isActive)
      : reader_(reader), localNames_(localNames), isActive_(isActive) {}

  Turn turnOf(const Change& change);

 private:
  Turn turnOfRemoval(const Change& change, const Node& node);
  Turn turnOfMove(const Change& change, const Node& node);
  // Nothing when nothing but the order keeps it back: then it may step aside.
  std::optional<Turn> turnIn(const Node& parent, const Change& change, const Node& node);
  enum class Inside { no, yes, unknown };
  Inside hostHasInside(NodeId folder, NodeId ancestor);
  bool shouldStepAside(const Change& change, const Node& node);
  bool isWanted(const Change& change, const Node& home);

  ReplicaReader& reader_;
  const LocalNames& localNames_;
  const IsActive& isActive_;
};

// Whether the node can take over the identity of a file whose place it takes: its contents have to
// be here.
bool mayInherit(const Node& node);

// Whether what `other` is about keeps its place at the host from the node. `former` is its node.
bool occupies(const Change& other, const std::optional<Node>& former, const Node& node,
              const LocalNames& localNames);

}  // namespace tulo
