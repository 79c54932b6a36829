// Brings a folder's rows to what a listing says, by identifier.
#pragma once

#include <string>

#include "service/kernel/Acknowledged.h"
#include "service/kernel/Notifier.h"
#include "service/kernel/OpenFiles.h"
#include "service/listing/Listing.h"
#include "service/replica/Replica.h"

namespace tulo {

// Threads: reconcile may run for several folders at once, for one folder once at a time.
class Reconciler {
 public:
  Reconciler(Replica& replica, OpenFiles& openFiles) : replica_(replica), openFiles_(openFiles) {}

  struct Result {
    Invalidations invalidations;  // what the kernel must be told
    bool outdated = false;        // some of it was newer here, so the folder is to be listed again
  };
  // One transaction. The listing must be complete; `watch` began before it did.
  Result reconcile(NodeId folder, const Listing& listing, const std::string& digest,
                   const ListingStamp& stamp, const Acknowledged::Watch& watch);

 private:
  Result attempt(NodeId folder, const Listing& listing, const std::string& digest,
                 const ListingStamp& stamp, const Acknowledged::Watch& watch, bool gateHeld);

  Replica& replica_;
  OpenFiles& openFiles_;
};

}  // namespace tulo
