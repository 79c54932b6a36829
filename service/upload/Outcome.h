// What an answer of the host's means for the replica and its journal.
//
// Threads: every member may be called on any thread, outside of transactions: each is one, and the
// kernel hears of it afterwards.
// Errors: DatabaseError.
#pragma once

#include <string>

#include "service/errors/Reaction.h"
#include "service/replica/Change.h"
#include "service/upload/Plan.h"
#include "service/upload/Relisting.h"
#include "service/upload/Tally.h"
#include "service/upload/UploaderParts.h"

namespace tulo {

class Outcome {
 public:
  Outcome(const UploaderParts& parts, Relisting& relisting, Tally& tally)
      : parts_(parts), relisting_(relisting), tally_(tally) {}

  // The host did what the plan says; the item is what it has now.
  void acknowledged(const Plan& plan, const platform::ItemPointer& item);
  // The host does not have the item any more, as was wanted.
  void removed(NodeId node);
  // Two versions grew from one: both stay.
  void conflict(const Plan& plan, const platform::ItemPointer& item);
  // What was to be deleted moved on at the host, so it stays there and is shown again.
  void keptAtHost(const Plan& plan);
  // The host deleted what was changed here. New contents make a new item; without any, the item is
  // gone here as well.
  void itemGone(const Plan& plan);
  // The folder that something is to be put into is gone at the host: it is made again first.
  void parentGone(const Plan& plan);

  // The request failed: it is tried again later, or waits for the user.
  struct Failure {
    bool attention = false;
    std::string words;  // for the user
  };
  Failure failed(const Plan& plan, const platform::NSError& error, Reaction reaction,
                 std::uint64_t random);

 private:
  // Whether something that only this machine has would go with the item.
  bool isWanted(ReplicaWriter& writer, const Node& node, const Change& change);
  Invalidations loseItem(ReplicaWriter& writer, NodeId node);
  Failure refuse(ReplicaWriter& writer, Change& change, const platform::NSError& error,
                 Reaction reaction);

  const UploaderParts& parts_;
  Relisting& relisting_;
  Tally& tally_;
};

}  // namespace tulo
