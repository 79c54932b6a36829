// What becomes of the children that a listing lacks.
//
// Threads: inside the transaction. Errors: what the replica throws.
#pragma once

#include <vector>

#include "service/listing/FolderChanges.h"
#include "service/listing/Reconciliation.h"

namespace tulo {

// Takes them out of the tree, but for those that were changed here or are being written. A folder
// in which something new waits becomes one that the host does not have yet.
void detachMissing(Reconciliation& pass, FolderChanges& changes,
                   const std::vector<const Node*>& missing);

}  // namespace tulo
