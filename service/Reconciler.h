// Brings a folder's rows to what a listing says, by identifier.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "service/Listing.h"
#include "service/Notifier.h"
#include "service/OpenFiles.h"
#include "service/Replica.h"

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

  // One transaction; returns what the kernel must be told. The listing must be complete.
  Invalidations reconcile(NodeId folder, const Listing& listing, const std::string& digest,
                          const ListingStamp& stamp);

 private:
  Invalidations attempt(NodeId folder, const Listing& listing, const std::string& digest,
                        const ListingStamp& stamp, bool gateHeld);

  Replica& replica_;
  OpenFiles& openFiles_;
};

// Of the folder's known children, up to two (a folder and a file) that the listing lacks.
std::vector<std::string> sampleOfMissing(Replica& replica, NodeId folder, const Listing& listing);

}  // namespace tulo
