// What an answer of the host's means for the replica and its journal.
//
// Threads: every member may be called on any thread, outside of transactions: each is one, and the
// kernel hears of it afterwards.
// Errors: DatabaseError.
#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>

#include "platform/linux/Mutex.h"
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
  struct Circumstances {
    Reaction reaction = Reaction::retry;
    std::uint64_t random = 0;
    bool ended = false;  // the host is not at work on it any more
  };
  Failure failed(const Plan& plan, const platform::NSError& error, const Circumstances& how);

 private:
  // Whether something that only this machine has would go with the item.
  bool isWanted(ReplicaWriter& writer, const Node& node, const Change& change);
  Invalidations loseItem(ReplicaWriter& writer, NodeId node);
  Failure refuse(ReplicaWriter& writer, Change& change, const platform::NSError& error,
                 const Circumstances& how);
  // Whether the change failed so often without a word of why that it is given up. What failed
  // because of something that passes does not count.
  bool isTired(const Change& change, Reaction reaction) TULO_EXCLUDES(mutex_);

  const UploaderParts& parts_;
  Relisting& relisting_;
  Tally& tally_;
  // A leaf.
  Mutex mutex_;
  std::unordered_map<NodeId, std::int64_t> uncertain_ TULO_GUARDED_BY(mutex_);
};

}  // namespace tulo
