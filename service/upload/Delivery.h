// Carries one change to the host, step by step.
//
// Each step is in the journal before the next begins, so that it can be picked up after a crash.
// Before contents go up or an item is deleted, the item is looked up: had it moved on, that is an
// outcome of its own. Where it is not known whether the host did what it was sent, that is found
// out first.
//
// Threads: any, which waits for the provider; one change is on one thread at a time.
#pragma once

#include <functional>
#include <optional>

#include "service/upload/Doubt.h"
#include "service/upload/Failure.h"
#include "service/upload/Outcome.h"
#include "service/upload/Planner.h"
#include "service/upload/Provider.h"
#include "service/upload/Reappearance.h"
#include "service/upload/UploaderParts.h"
#include "service/upload/Verdicts.h"

namespace tulo {

class Delivery {
 public:
  // What a delivery goes through; outlives it.
  struct Stations {
    const Planner& planner;
    Provider& provider;
    Outcome& outcome;
    Failure& failure;
    Doubt& doubt;
    Reappearance& reappearance;
    Verdicts& verdicts;
    // The host did what it was asked.
    std::function<void()> reached;
  };

  Delivery(const UploaderParts& parts, Stations stations)
      : parts_(parts), to_(std::move(stations)) {}

  // The change of the node, as far as it can go now. What fails here is noted, and tried again.
  void carryOut(NodeId node, bool aside);

 private:
  // Nothing when there is nothing to be told to the host, or not yet.
  std::optional<Plan> makePlan(NodeId node, bool aside);
  void perform(Plan& plan);
  void performRemoval(const Plan& plan);
  // Sends the plan, whose request is noted, and hands on the answer.
  void send(const Plan& plan);

  // The host says that it did what the plan says, and shows the item. Where that may be somebody
  // else's doing, the bytes are compared.
  void accept(const Plan& plan, const platform::ItemPointer& item);

  // Whether the host has what the plan starts from. False when the change is done with, or for the
  // moment.
  bool checkBase(Plan& plan);
  // The host has another version of the same size, which may be this very one: sent before a power
  // cut that took the note of it along, or made there as well. The change is done with, or goes on
  // later.
  void checkSame(Plan& plan, const platform::ItemPointer& item);
  // False when the item is not as the change of this side left it and stays.
  bool mayRemove(const Plan& plan, const platform::ItemPointer& item);
  // Whether it is another version than the one that was deleted here; nothing when the service
  // ends.
  std::optional<bool> hasMovedOn(const Plan& plan, const platform::NSFileProviderItem& item);

  // Notes that the request is made, in the plan, too. False when the plan is out of date: something
  // was changed since, and is not to be sent half done.
  bool markSent(Plan& plan);
  bool isOutOfDate(const Plan& plan, const Change& change, const Node& node);
  // Nothing can be told to the host of it as yet, although it is its turn.
  void rest(NodeId node);
  void putOff(NodeId node);

  const UploaderParts& parts_;
  const Stations to_;
};

}  // namespace tulo
