// What became of a request that was not answered: the host is asked what it has.
//
// A create is looked for by name, size and bytes in the folder that it was sent to, new contents by
// the item's version and bytes. What is found is taken for the answer, so nothing is made twice. As
// long as the host may still be at work on the request, what is not there says nothing.
//
// Threads: any, which waits for the provider.
// Errors: DatabaseError; a runtime_error when it cannot be found out at the moment.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "service/upload/Failure.h"
#include "service/upload/HostWork.h"
#include "service/upload/Outcome.h"
#include "service/upload/Provider.h"
#include "service/upload/UploaderParts.h"

namespace tulo {

class Doubt {
 public:
  Doubt(const UploaderParts& parts, Provider& provider, Outcome& outcome, Failure& failure)
      : parts_(parts),
        provider_(provider),
        outcome_(outcome),
        failure_(failure),
        work_(parts.activity, parts.host) {}

  // Of the plan's request. Had it no effect, the change waits for its turn like any other.
  void settle(const Plan& plan);
  // Of a request that the host says it has done, while what it shows of the item may be somebody
  // else's: the bytes tell.
  void compare(const Plan& plan, const platform::ItemPointer& item);

 private:
  void settleCreate(const Plan& plan, Prospect prospect);
  void settleContents(const Plan& plan, const platform::ItemPointer& now, Prospect prospect);

  // The item is what the request made of it.
  void acknowledge(const Plan& plan, const platform::ItemPointer& item);

  // The item that a create made although its answer was lost, or null. Nothing when that cannot be
  // told now; the change is put off then.
  std::optional<platform::ItemPointer> findCreated(const Plan& plan);
  // New to this side, of the kind, name and size that were sent.
  std::vector<std::string> candidates(const Plan& plan, const Listing& listing);
  // Looks again later, and has the user told what is waited for.
  void waitForHost(const Plan& plan, Prospect prospect);
  // Nothing of the request is left to be found out; what the host has of the item, if it has it, is
  // known.
  void end(const Plan& plan, const platform::ItemPointer& item);
  void endOrWait(const Plan& plan, const platform::ItemPointer& item, Prospect prospect);

  const UploaderParts& parts_;
  Provider& provider_;
  Outcome& outcome_;
  Failure& failure_;
  HostWork work_;
};

}  // namespace tulo
