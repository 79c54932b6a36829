// What follows from an error of the host's.
//
// Some errors say that the item or its folder is gone; that is looked up, and then it is an outcome
// like others. The rest is noted: the change is tried again or refused, others are kept back with
// it, and who waits for it is told.
//
// Threads: every member may be called on any thread, which may wait for the provider.
// Errors: DatabaseError.
#pragma once

#include <optional>

#include "service/errors/Reaction.h"
#include "service/upload/HostHealth.h"
#include "service/upload/Judge.h"
#include "service/upload/Outcome.h"
#include "service/upload/Provider.h"
#include "service/upload/Reappearance.h"
#include "service/upload/StagingProbe.h"
#include "service/upload/Tally.h"
#include "service/upload/UploaderParts.h"

namespace tulo {

class Failure {
 public:
  Failure(const UploaderParts& parts, Provider& provider, Reappearance& reappearance,
          Outcome& outcome, HostHealth& health, Judge& judge, Tally& tally)
      : parts_(parts),
        probe_(parts.container),
        provider_(provider),
        reappearance_(reappearance),
        outcome_(outcome),
        health_(health),
        judge_(judge),
        tally_(tally) {}

  // Whether the request has come to its end at the host as well, as far as the time that it took
  // tells.
  enum class End { answered, gaveUpWaiting };
  // The plan was answered with the error, or what it is about was.
  void react(const Plan& plan, const platform::NSError& error, End end = End::answered);

 private:
  // The error says that something is gone. Nothing when that has been seen to, else what is to be
  // noted: the error itself, or why it cannot be looked into at the moment.
  std::optional<platform::NSError> lookInto(const Plan& plan, const platform::NSError& error);
  // What went wrong: where the error leaves that open, it may be that the contents could not even
  // be handed over.
  platform::NSError causeOf(const Plan& plan, const platform::NSError& error);
  static bool passesSoon(const Plan& plan, Reaction reaction);
  void note(const Plan& plan, const platform::NSError& error, Reaction reaction, End end);

  const UploaderParts& parts_;
  const StagingProbe probe_;
  Provider& provider_;
  Reappearance& reappearance_;
  Outcome& outcome_;
  HostHealth& health_;
  Judge& judge_;
  Tally& tally_;
};

}  // namespace tulo
