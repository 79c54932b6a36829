// Brings a folder's rows to what a listing says, by identifier.
//
// What has another identifier than before gets it (Rebinding). The listing is sorted out
// (ListingSort), then what it lacks goes (MissingRows), what stays is
// brought up to date (RowUpdates), and what is new gets its rows (NewRows).
//
// Errors: what the replica throws; then nothing is changed.
#pragma once

#include <string>
#include <vector>

#include "service/kernel/Acknowledged.h"
#include "service/kernel/Folders.h"
#include "service/kernel/Notifier.h"
#include "service/kernel/OpenFiles.h"
#include "service/listing/Listing.h"
#include "service/replica/ContentStore.h"
#include "service/replica/Replica.h"

namespace tulo {

// Threads: reconcile may run for several folders at once, for one folder once at a time.
class Reconciler {
 public:
  Reconciler(Replica& replica, OpenFiles& openFiles, Folders& folders, const ContentStore& store)
      : replica_(replica), openFiles_(openFiles), folders_(folders), store_(store) {}

  struct Result {
    Invalidations invalidations;  // what the kernel must be told
    bool outdated = false;  // some of it was newer here, or not told apart yet: to be listed again
    std::vector<NodeId> relist;  // folders in it that are others at the host than before
  };
  struct Input {
    NodeId folder;
    const Listing& listing;     // complete
    const std::string& digest;  // of the listing
    const ListingStamp& stamp;
    const Acknowledged::Watch& watch;  // began before the listing did
  };
  // One transaction.
  Result reconcile(const Input& input);

 private:
  Result attempt(const Input& input, bool gateHeld);

  Replica& replica_;
  OpenFiles& openFiles_;
  Folders& folders_;
  const ContentStore& store_;
};

}  // namespace tulo
