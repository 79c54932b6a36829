// What became of a request that was not answered: the host is asked what it has.
//
// A create is looked for by name, size and bytes in the folder that it was sent to, new contents by
// the item's version and bytes. What is found is taken for the answer, so nothing is made twice.
//
// Threads: any, which waits for the provider.
// Errors: DatabaseError; a runtime_error when it cannot be found out at the moment.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "service/upload/Failure.h"
#include "service/upload/Outcome.h"
#include "service/upload/Provider.h"
#include "service/upload/UploaderParts.h"

namespace tulo {

class Doubt {
 public:
  Doubt(const UploaderParts& parts, Provider& provider, Outcome& outcome, Failure& failure)
      : parts_(parts), provider_(provider), outcome_(outcome), failure_(failure) {}

  // Of the plan's request. Had it no effect, the change waits for its turn like any other.
  void settle(const Plan& plan);

 private:
  void settleCreate(const Plan& plan);
  void settleContents(const Plan& plan, const platform::ItemPointer& now);

  // The item that a create made although its answer was lost, or null. Nothing when that cannot be
  // told now; the change is put off then.
  std::optional<platform::ItemPointer> findCreated(const Plan& plan);
  // New to this side, of the kind, name and size that were sent.
  std::vector<std::string> candidates(const Plan& plan, const Listing& listing);
  // A host that was not waited for may still be at work. False, and the change put off, until it
  // had its time.
  bool hadTime(const Plan& plan);
  // Nothing of the request is left to be found out; what the host has of the item, if it has it, is
  // known.
  void end(const Plan& plan, const platform::ItemPointer& item);

  const UploaderParts& parts_;
  Provider& provider_;
  Outcome& outcome_;
  Failure& failure_;
};

}  // namespace tulo
