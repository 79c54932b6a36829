// Brings the row of a known item to what the provider says of it.
//
// Threads: inside the transaction.
// Errors: what the replica throws; NeedsGate when contents change and the gate is not held.
#pragma once

#include <vector>

#include "service/listing/ListingSort.h"
#include "service/listing/Reconciliation.h"

namespace tulo {

// Names may be exchanged among them.
void updateRows(Reconciliation& pass, const std::vector<KeptItem>& kept);

// The node gets the item's place, name and properties, and loses contents that are no longer the
// item's: if it is open, it goes on under a fresh number.
void updateRow(Reconciliation& pass, const KeptItem& kept);

}  // namespace tulo
