// Brings a folder's rows to what a listing says, by identifier.
#pragma once

#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "service/kernel/Acknowledged.h"
#include "service/kernel/Notifier.h"
#include "service/kernel/OpenFiles.h"
#include "service/listing/Listing.h"
#include "service/replica/Replica.h"

namespace tulo {

// The state of the source that a listing was made in.
struct ListingStamp {
  std::uint64_t generation = 0;
  std::string fingerprint;  // empty: cannot be recognised again
};

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

// Of the folder's known children, up to two (a folder and a file) that the listing lacks and that
// are not newer.
std::vector<std::string> sampleOfMissing(Replica& replica, NodeId folder, const Listing& listing,
                                         const std::unordered_set<std::string>& newer);

}  // namespace tulo
