// Whether an item that has another identifier than before is still the file that was known here.
//
// Only names, sizes and whole seconds can be compared. A file that is deleted and made again within
// the second in which it had been written agrees in all of them, so agreeing is not enough while
// that second may not have been over.
//
// Threads: a pure function of its arguments and of the file of contents.
// Errors: none.
#pragma once

#include "service/listing/Listing.h"
#include "service/replica/ContentStore.h"
#include "service/replica/Node.h"

namespace tulo {

enum class Likeness {
  other,     // it is not
  possible,  // it may be: only its bytes would tell
  same,
};

Likeness likenessOf(const Node& node, const ItemRecord& item, const ContentStore& store);

}  // namespace tulo
