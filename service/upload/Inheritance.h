// Whose identity a file has at the host.
//
// A new file in the place of one that was deleted or set aside as a backup is new contents of that
// one: its identity goes over. However an editor saves, the host sees one item change.
//
// Threads: used inside one transaction.
// Errors: DatabaseError; ContentError where the contents cannot be made.
#pragma once

#include <functional>

#include "service/edits/LocalNames.h"
#include "service/replica/Change.h"
#include "service/replica/ContentStore.h"
#include "service/replica/ReplicaWriter.h"

namespace tulo {

class Inheritance {
 public:
  using IsActive = std::function<bool(NodeId)>;

  Inheritance(ReplicaWriter& writer, const LocalNames& localNames, const ContentStore& store,
              const IsActive& isActive)
      : writer_(writer), localNames_(localNames), store_(store), isActive_(isActive) {}

  // Gives the node the identity of what had its place, if there is any: node, change and their rows
  // say so afterwards. False when that has to wait for the former one: for its contents, if it is a
  // backup, or for the end of what is being done with it; all is as it was then.
  bool settle(Node& node, Change& change, const Place& place, WallTime now);

 private:
  enum class Claim { none, wait, inherit };
  // What the node may have of the one that had its place.
  Claim claim(const Node& node, const Change& other, const Node& former);
  // Takes the identity over, in all four.
  void inherit(Node& node, Change& change, const Node& former, Change& other, WallTime now);
  // The former one is not at the host any more.
  void letGo(const Node& former, const Change& other, WallTime now);
  // What the two are at the host changes hands, and their order with it.
  void exchange(const Node& node, Change& change, const Node& former, Change& other);
  // An empty file of the host has no contents here; to be sent, it needs some.
  void giveEmptyContents(Node& node);

  ReplicaWriter& writer_;
  const LocalNames& localNames_;
  const ContentStore& store_;
  const IsActive& isActive_;
};

}  // namespace tulo
