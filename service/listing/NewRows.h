// Gives rows to the items of a listing that the folder has not had.
//
// Threads: inside the transaction.
// Errors: what the replica throws; NeedsGate when one comes from elsewhere with other contents.
#pragma once

#include <vector>

#include "service/listing/Listing.h"
#include "service/listing/Reconciliation.h"

namespace tulo {

// Of an identifier that is known elsewhere in the tree the node moves here. A name that is taken
// gets a mark.
void insertRows(Reconciliation& pass, const std::vector<const ItemRecord*>& fresh);

}  // namespace tulo
