// Folders that somebody put into one another's places at the host, seen in two listings: whichever
// comes first would put a folder into what is still below it here.
//
// Threads: inside the transaction.
// Errors: what the replica throws.
#pragma once

#include "service/listing/Reconciliation.h"

namespace tulo {

// Sees to it that the folder of the listing is not below the node that is about to move into it:
// at the host nothing is, so the branch in which it is here has left the node there, and leaves the
// tree here until its new place is listed. False when that branch was put where it is on this side
// and the host is still to hear of it: then the node stays where it is, and the folder is to be
// listed again.
bool makeWay(Reconciliation& pass, const Node& moved);

}  // namespace tulo
